%% What takes the virtual machine many calls, each with a change of threads, in
%% one. Where the native library is not there, what stands here does the same.
-module(engine_native).

-export([listing/1, copy_small/1]).

-on_load(load/0).

-type entry() :: engine_file:entry() | unknown.

load() ->
    Library = filename:join(filename:dirname(code:which(?MODULE)), "engine_native"),
    _ = erlang:load_nif(Library, none),
    ok.

%% The entries of a directory by name, never through a symbolic link. What could
%% not be looked at, or was gone before it could, is "unknown".
-spec listing(binary()) -> {ok, [{Name :: binary(), entry()}]} | {error, atom()}.
listing(Dir) ->
    case engine_file:list(Dir) of
        {ok, Names} -> {ok, [{Name, entry(engine_file:join(Dir, Name))} || Name <- Names]};
        {error, Reason} -> {error, Reason}
    end.

entry(Path) ->
    case engine_file:look(Path) of
        absent -> unknown;
        {error, _} -> unknown;
        Entry -> Entry
    end.

%% Copies files that are as seen to names that are free, by way of temporary
%% ones, with their times and their modes. Gives the content and what stands
%% there now. "Changed" when the source is no longer as seen, or the name is
%% taken; "enotsup" where that cannot be done so.
-spec copy_small([{From :: binary(), Seen :: engine_file:sig(), Temp :: binary(), To :: binary()}]) ->
          [{ok, Content :: binary(), engine_file:sig()} | {error, atom()}].
copy_small(Files) -> [{error, enotsup} || _ <- Files].
