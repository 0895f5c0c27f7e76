%% Files and directories as the engine sees them: names are raw binaries, so
%% every name that the file system can hold is handled, and every look is a
%% look at the entry itself, never through a symbolic link.
-module(engine_file).

-include_lib("kernel/include/file.hrl").

-export([look/1, look_with_mode/1, list/1, hash/1, read/1, write_atomic/3, read_term/1, write_term/2,
         ensure_dir/1, make_dir/1, make_new_dir/1, delete_dir/1, delete/1, rename/2,
         join/2, from_native/1, to_native/1, cache_name/0]).

-export_type([entry/0, sig/0]).

-define(CHUNK, 262144).

%% What tells one state of a file from another without reading it.
-type sig() :: {Size :: non_neg_integer(), MTime :: integer(),
                CTime :: integer(), Inode :: non_neg_integer()}.
-type entry() :: {dir, sig()} | {file, sig()} | other.

%% The hidden directory directly in a root that holds the engine's own files.
-spec cache_name() -> binary().
cache_name() -> <<".orvel.cache">>.

-spec look(binary()) -> entry() | absent | {error, atom()}.
look(Path) ->
    case look_with_mode(Path) of
        {Entry, _} when Entry =/= error -> Entry;
        Other -> Other
    end.

-spec look_with_mode(binary()) -> {entry(), Mode :: non_neg_integer()} | absent | {error, atom()}.
look_with_mode(Path) ->
    case prim_file:read_link_info(Path, [{time, posix}]) of
        {ok, #file_info{type = directory, inode = Inode, mode = Mode}} -> {{dir, {0, 0, 0, Inode}}, Mode};
        {ok, #file_info{type = regular, mode = Mode} = Info} ->
            {{file, {Info#file_info.size, Info#file_info.mtime, Info#file_info.ctime, Info#file_info.inode}}, Mode};
        {ok, #file_info{mode = Mode}} -> {other, Mode};
        {error, enoent} -> absent;
        {error, enotdir} -> absent;
        {error, Reason} -> {error, Reason}
    end.

%% Here and below without the file server, through which all calls of all
%% processes would go one by one.
-spec list(binary()) -> {ok, [binary()]} | {error, atom()}.
list(Dir) ->
    case prim_file:list_dir_all(Dir) of
        {ok, Names} -> {ok, lists:sort([listed(Name) || Name <- Names])};
        {error, Reason} -> {error, Reason}
    end.

%% A name that is no text, which Windows allows, is given as one that is not
%% there: nothing is concluded from it.
listed(Name) ->
    case from_native(Name) of
        Bytes when is_binary(Bytes) -> Bytes;
        {_, Start, Rest} ->
            <<Start/binary, (<< <<16#FFFD/utf8>> || _ <- lists:flatten(Rest) >>)/binary>>
    end.

%% The bytes of a name or of a variable of the environment.
-spec from_native(string() | binary()) -> binary().
from_native(Name) when is_binary(Name) -> Name;
from_native(Name) ->
    case file:native_name_encoding() of
        utf8 -> unicode:characters_to_binary(Name);
        latin1 -> list_to_binary(Name)
    end.

%% As the system takes it for a program and its arguments.
-spec to_native(binary()) -> string() | binary().
to_native(Name) ->
    case unicode:characters_to_list(Name) of
        Text when is_list(Text) -> Text;
        _ -> Name
    end.

-spec join(binary(), binary()) -> binary().
join(Root, <<>>) -> Root;
join(Root, Rel) ->
    case binary:last(Root) of
        $/ -> <<Root/binary, Rel/binary>>;
        _ -> <<Root/binary, "/", Rel/binary>>
    end.

-spec hash(binary()) -> {ok, binary()} | {error, atom()}.
hash(Path) ->
    case file:open(Path, [read, raw, binary]) of
        {ok, File} ->
            try hash_all(File, crypto:hash_init(sha256))
            after file:close(File)
            end;
        {error, Reason} -> {error, Reason}
    end.

hash_all(File, Context) ->
    case file:read(File, ?CHUNK) of
        {ok, Bytes} -> hash_all(File, crypto:hash_update(Context, Bytes));
        eof -> {ok, crypto:hash_final(Context)};
        {error, Reason} -> {error, Reason}
    end.

-spec read(binary()) -> {ok, binary()} | {error, atom()}.
read(Path) -> prim_file:read_file(Path).

%% Replaces a file in one step: whoever reads it, also after a crash, finds
%% the old content or the new one. A function writes the content by itself.
-spec write_atomic(binary(), iodata() | fun((file:io_device()) -> ok | {error, atom()}),
                   non_neg_integer()) -> ok | {error, atom()}.
write_atomic(Path, Content, Mode) ->
    Temp = <<Path/binary, ".new">>,
    _ = file:delete(Temp),
    case file:open(Temp, [write, raw, binary, exclusive]) of
        {ok, File} ->
            Written = try chain([fun() -> file:change_mode(Temp, Mode) end,
                                 fun() -> write_to(File, Content) end,
                                 fun() -> file:datasync(File) end])
                      after file:close(File)
                      end,
            chain([fun() -> Written end, fun() -> file:rename(Temp, Path) end]);
        {error, Reason} -> {error, Reason}
    end.

write_to(File, Write) when is_function(Write) -> Write(File);
write_to(File, Bytes) -> file:write(File, Bytes).

chain([]) -> ok;
chain([Step | Steps]) ->
    case Step() of
        ok -> chain(Steps);
        {error, Reason} -> {error, Reason}
    end.

%% A file that holds one Erlang term, for the engine's own eyes only.
-spec read_term(binary()) -> {ok, term()} | {error, enoent | damaged}.
read_term(Path) ->
    case file:consult(Path) of
        {ok, [Term]} -> {ok, Term};
        {error, enoent} -> {error, enoent};
        _ -> {error, damaged}
    end.

%% Bytes of a text are printed as characters one by one, which is Latin-1.
-spec write_term(binary(), term()) -> ok | {error, atom()}.
write_term(Path, Term) ->
    write_atomic(Path, io_lib:format("%% coding: latin-1~n~p.~n", [Term]), 8#600).

-spec ensure_dir(binary()) -> ok | {error, atom()}.
ensure_dir(Path) ->
    case filelib:is_dir(Path) of
        true -> ok;
        false ->
            case filename:dirname(Path) of
                Path -> {error, enoent};
                Parent ->
                    chain([fun() -> ensure_dir(Parent) end,
                           fun() -> make_dir(Path) end])
            end
    end.

%% Only the last part of the path is made.
-spec make_dir(binary()) -> ok | {error, atom()}.
make_dir(Path) ->
    case prim_file:make_dir(Path) of
        {error, eexist} -> ok;
        Result -> Result
    end.

%% Fails with "eexist" where something stands already.
-spec make_new_dir(binary()) -> ok | {error, atom()}.
make_new_dir(Path) -> prim_file:make_dir(Path).

%% Only an empty one goes.
-spec delete_dir(binary()) -> ok | {error, atom()}.
delete_dir(Path) -> writable(Path, fun() -> prim_file:del_dir(Path) end).

%% Windows lets nobody remove or replace what is marked as read-only; on other
%% systems the mark says nothing about that. A directory can have it, too: so
%% Windows notes that its icon is not the usual one.
-spec delete(binary()) -> ok | {error, atom()}.
delete(Path) -> writable(Path, fun() -> prim_file:delete(Path) end).

-spec rename(binary(), binary()) -> ok | {error, atom()}.
rename(From, To) -> writable(To, fun() -> prim_file:rename(From, To) end).

writable(Path, Do) ->
    case Do() of
        {error, Denied} when Denied =:= eacces; Denied =:= eperm ->
            case file:read_link_info(Path, [raw]) of
                {ok, #file_info{type = Type, mode = Mode}}
                  when (Type =:= regular orelse Type =:= directory), Mode band 8#200 =:= 0 ->
                    _ = file:change_mode(Path, Mode bor 8#200),
                    Done = Do(),
                    _ = Done =:= ok orelse file:change_mode(Path, Mode),
                    Done;
                _ -> {error, Denied}
            end;
        Done -> Done
    end.
