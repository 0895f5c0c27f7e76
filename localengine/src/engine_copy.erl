%% Copies one file. The bytes go to a temporary name first and are renamed
%% into place, so no half file is ever seen under a name of the user's.
-module(engine_copy).

-include_lib("kernel/include/file.hrl").

-export([copy/6]).

-export_type([job/0]).

-define(CHUNK, 262144).

%% Both ends are given with the state in which they were seen. When the source
%% or the target is no longer in that state the copy is given up: someone is
%% still working there, and the next look decides anew.
-type job() :: #{from := binary(), seen := engine_file:sig(),
                 to := binary(), expect := engine_file:entry() | absent,
                 temp := binary()}.

%% Opener stands for file:open/2. Tell is called with the bytes of each step,
%% first with 0 once the source is open. Rate is in bytes a second.
-spec copy(job(), pos_integer() | unlimited, fun(), fun(), Acc, fun(() -> boolean())) ->
          {{ok, Hash :: binary(), engine_file:sig()} | {error, term()}, Acc}.
copy(#{from := From, temp := Temp} = Job, Rate, Opener, Tell, Acc0, Allowed) ->
    case Opener(From, [read, raw, binary]) of
        {ok, In} ->
            try
                Acc1 = Tell(0, Acc0),
                {Copied, Acc} = to_temp(In, Temp, Rate, Tell, Acc1),
                {finish(Copied, Job, Allowed), Acc}
            after
                file:close(In),
                file:delete(Temp)
            end;
        {error, Reason} -> {{error, Reason}, Acc0}
    end.

to_temp(In, Temp, Rate, Tell, Acc0) ->
    case file:open(Temp, [write, raw, binary, exclusive]) of
        {ok, Out} ->
            try transfer(In, Out, chunk_size(Rate), Rate, crypto:hash_init(sha256), Tell, Acc0)
            after file:close(Out)
            end;
        {error, Reason} -> {{error, Reason}, Acc0}
    end.

chunk_size(unlimited) -> ?CHUNK;
chunk_size(Rate) -> max(1, min(?CHUNK, Rate div 10)).

transfer(In, Out, Chunk, Rate, Hash, Tell, Acc) ->
    case file:read(In, Chunk) of
        {ok, Bytes} ->
            case file:write(Out, Bytes) of
                ok ->
                    pace(byte_size(Bytes), Rate),
                    transfer(In, Out, Chunk, Rate, crypto:hash_update(Hash, Bytes), Tell,
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
    ok_or_error([fun() -> same_attributes(From, Temp) end,
                 fun() -> still({file, Seen}, From) end,
                 fun() -> case Allowed() of true -> ok; false -> {error, root_changed} end end,
                 fun() -> in_place(Temp, To, Expect) end],
                Hash).

ok_or_error([Last], Hash) ->
    case Last() of
        {ok, Sig} -> {ok, Hash, Sig};
        {error, Reason} -> {error, Reason}
    end;
ok_or_error([Step | Steps], Hash) ->
    case Step() of
        ok -> ok_or_error(Steps, Hash);
        {error, Reason} -> {error, Reason}
    end.

same_attributes(From, Temp) ->
    case file:read_link_info(From, [raw, {time, posix}]) of
        {ok, #file_info{mtime = MTime, mode = Mode}} ->
            %% The engine must be able to write what it made.
            Info = #file_info{mtime = MTime, atime = MTime,
                              mode = (Mode band 8#777) bor 8#600},
            file:write_file_info(Temp, Info, [raw, {time, posix}]);
        {error, Reason} -> {error, Reason}
    end.

still(Expect, Path) ->
    case engine_file:look(Path) of
        Expect -> ok;
        _ -> {error, changed}
    end.

%% What stands under the name afterwards must be what was put there.
in_place(Temp, To, Expect) ->
    case engine_file:look(Temp) of
        {file, {Size, MTime, _, Inode}} ->
            case ok_or_error([fun() -> still(Expect, To) end,
                              fun() -> put_there(Temp, To, Expect) end], none) of
                {ok, _, _} ->
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
    case file:make_link(Temp, To) of
        ok -> _ = file:delete(Temp), {ok, linked};
        {error, eexist} -> {error, changed};
        %% Not every file system has links.
        {error, _} -> renamed(Temp, To)
    end;
put_there(Temp, To, _) -> renamed(Temp, To).

renamed(Temp, To) ->
    case engine_file:rename(Temp, To) of
        ok -> {ok, renamed};
        {error, Reason} -> {error, Reason}
    end.
