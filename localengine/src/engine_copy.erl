%% Copies one file. The bytes go to a temporary name first and are renamed
%% into place, so no half file is ever seen under a name of the user's.
-module(engine_copy).

-include_lib("kernel/include/file.hrl").

-export([copy/6, is_small/1, small/1]).

-export_type([job/0]).

-define(CHUNK, 262144).
%% Up to here a file is copied in one call.
-define(SMALL, 65536).

%% Both ends are given with the state in which they were seen. When the source
%% or the target is no longer in that state the copy is given up: someone is
%% still working there, and the next look decides anew.
-type job() :: #{from := binary(), seen := engine_file:sig(),
                 to := binary(), expect := engine_file:entry() | absent,
                 temp := binary()}.

%% Whether "small" may copy it.
-spec is_small(job()) -> boolean().
is_small(#{seen := {Size, _, _, _}, expect := Expect}) -> Expect =:= absent andalso Size =< ?SMALL.

%% Small files, one result a job. With "enotsup" it takes "copy".
-spec small([job()]) -> [{ok, Hash :: binary(), engine_file:sig()} | {error, atom()}].
small(Jobs) ->
    Copied = engine_native:copy_small([{From, Seen, Temp, To} || #{from := From, seen := Seen, temp := Temp, to := To} <- Jobs]),
    [case Result of
         {ok, Bytes, Sig} -> {ok, crypto:hash(sha256, Bytes), Sig};
         {error, Reason} -> {error, Reason}
     end || Result <- Copied].

%% Opener stands for file:open/2. Tell is called with the bytes of each step,
%% first with 0 once the source is open. Rate is in bytes a second.
-spec copy(job(), pos_integer() | unlimited, fun(), fun(), Acc, fun(() -> boolean())) ->
          {{ok, Hash :: binary(), engine_file:sig()} | {error, term()}, Acc}.
copy(#{from := From, temp := Temp, seen := Seen} = Job, Rate, Opener, Tell, Acc0, Allowed) ->
    case Opener(From, [read, raw, binary]) of
        {ok, In} ->
            Acc1 = Tell(0, Acc0),
            {Copied, Acc} = try to_temp(In, Temp, element(1, Seen), Rate, Tell, Acc1)
                            after file:close(In)
                            end,
            Done = finish(Copied, Job, Allowed),
            %% Otherwise it stands under its name.
            _ = element(1, Done) =:= ok orelse engine_file:delete(Temp),
            {Done, Acc};
        {error, Reason} -> {{error, Reason}, Acc0}
    end.

to_temp(In, Temp, Size, Rate, Tell, Acc0) ->
    case file:open(Temp, [write, raw, binary, exclusive]) of
        {ok, Out} ->
            try transfer(In, Out, chunk_size(Rate), Size, Rate, Tell, Acc0)
            after file:close(Out)
            end;
        {error, Reason} -> {{error, Reason}, Acc0}
    end.

chunk_size(unlimited) -> ?CHUNK;
chunk_size(Rate) -> max(1, min(?CHUNK, Rate div 10)).

%% A small file is one step. It may have grown since.
transfer(In, Out, Chunk, Size, Rate, Tell, Acc) when Size < Chunk ->
    case read_to(In, Size + 1) of
        {ok, Bytes} when byte_size(Bytes) =< Size ->
            case file:write(Out, Bytes) of
                ok ->
                    pace(byte_size(Bytes), Rate),
                    {{ok, crypto:hash(sha256, Bytes)}, Tell(byte_size(Bytes), Acc)};
                {error, Reason} -> {{error, Reason}, Acc}
            end;
        {ok, _} -> {{error, changed}, Acc};
        {error, Reason} -> {{error, Reason}, Acc}
    end;
transfer(In, Out, Chunk, _, Rate, Tell, Acc) ->
    stream(In, Out, Chunk, Rate, crypto:hash_init(sha256), Tell, Acc).

read_to(In, Size) ->
    case file:read(In, Size) of
        eof -> {ok, <<>>};
        Result -> Result
    end.

stream(In, Out, Chunk, Rate, Hash, Tell, Acc) ->
    case file:read(In, Chunk) of
        {ok, Bytes} ->
            case file:write(Out, Bytes) of
                ok ->
                    pace(byte_size(Bytes), Rate),
                    stream(In, Out, Chunk, Rate, crypto:hash_update(Hash, Bytes), Tell,
                             Tell(byte_size(Bytes), Acc));
                {error, Reason} -> {{error, Reason}, Acc}
            end;
        eof -> {{ok, crypto:hash_final(Hash)}, Acc};
        {error, Reason} -> {{error, Reason}, Acc}
    end.

pace(_, unlimited) -> ok;
pace(Bytes, Rate) -> receive after Bytes * 1000 div Rate -> ok end.

finish({error, Reason}, _, _) -> {error, Reason};
finish({ok, Hash}, #{from := From, seen := Seen, to := To, expect := Expect, temp := Temp},
       Allowed) ->
    case engine_file:look_with_mode(From) of
        {{file, Seen}, Mode} ->
            Placed = chain([fun() -> same_attributes(Seen, Mode, Temp) end,
                            fun() -> case Allowed() of true -> ok; false -> {error, root_changed} end end,
                            fun() -> in_place(Temp, To, Expect, Mode) end]),
            case Placed of
                {ok, Sig} -> {ok, Hash, Sig};
                {error, Reason} -> {error, Reason}
            end;
        _ -> {error, changed}
    end.

%% What the first step that does not say ok says, or else the last one.
chain([Last]) -> Last();
chain([Step | Steps]) ->
    case Step() of
        ok -> chain(Steps);
        {error, Reason} -> {error, Reason}
    end.

same_attributes({_, MTime, _, _}, Mode, Temp) ->
    Info = #file_info{mtime = MTime, atime = MTime, ctime = MTime, mode = (Mode band 8#777) bor 8#600},
    prim_file:write_file_info(Temp, Info, [{time, posix}]).

%% Last of all, as Windows does not let go of the temporary name of a file with
%% that mark.
read_only(To, Mode) when Mode band 8#200 =:= 0 ->
    file:change_mode(To, (Mode band 8#777) bor 8#400);
read_only(_, _) -> ok.

%% What stands under the name afterwards must be what was put there.
in_place(Temp, To, Expect, Mode) ->
    case engine_file:look(Temp) of
        {file, {Size, MTime, _, Inode}} ->
            case chain([fun() -> put_there(Temp, To, Expect) end,
                        fun() -> read_only(To, Mode) end]) of
                ok ->
                    case engine_file:look(To) of
                        {file, {Size, MTime, _, Inode} = Sig} -> {ok, Sig};
                        _ -> {error, changed}
                    end;
                {error, Reason} -> {error, Reason}
            end;
        _ -> {error, changed}
    end.

%% A link replaces nothing that somebody else has just put there.
put_there(Temp, To, absent) ->
    case prim_file:make_link(Temp, To) of
        ok -> _ = prim_file:delete(Temp), ok;
        {error, eexist} -> {error, changed};
        %% Not every file system has links.
        {error, _} -> replace(Temp, To, absent)
    end;
put_there(Temp, To, Expect) -> replace(Temp, To, Expect).

replace(Temp, To, Expect) ->
    case engine_file:look(To) of
        Expect -> engine_file:rename(Temp, To);
        _ -> {error, changed}
    end.
