%% A fresh temporary directory a test, and waiting with a deadline.
-module(engine_lab).

-export([new/0, remove/1, in/2, write/2, write/3, read/1, tree/1, wait/2, wait/3, age/1,
         exists/1, unless_windows/2, on_windows/1, hold/1, release/1, junction/2,
         system_program/2]).

-define(DEADLINE_MS, 20000).

new() ->
    Base = case os:getenv("TMPDIR") of
               false -> "/tmp";
               Dir -> Dir
           end,
    Name = "orvel-test-" ++ binary_to_list(binary:encode_hex(crypto:strong_rand_bytes(8))),
    Lab = unicode:characters_to_binary(filename:absname(filename:join(Base, Name))),
    ok = file:make_dir(Lab),
    Lab.

remove(Lab) -> file:del_dir_r(Lab).

in(Lab, Name) -> filename:join(Lab, Name).

write(Path, Bytes) ->
    ok = filelib:ensure_dir(Path),
    ok = file:write_file(Path, Bytes).

write(Root, Name, Bytes) -> write(in(Root, Name), Bytes).

read(Path) ->
    case file:read_file(Path) of
        {ok, Bytes} -> Bytes;
        {error, Reason} -> Reason
    end.

exists(Path) -> engine_file:look(Path) =/= absent.

%% Everything in a root but the engine's own files: names to contents.
tree(Root) -> maps:from_list(tree(Root, <<>>)).

tree(Root, Dir) ->
    {ok, Names} = engine_file:list(engine_file:join(Root, Dir)),
    lists:append([item(Root, engine_path:child(Dir, Name))
                  || Name <- Names, Name =/= engine_file:cache_name()]).

item(Root, Path) ->
    Absolute = engine_file:join(Root, Path),
    case engine_file:look(Absolute) of
        {dir, _} -> [{Path, dir} | tree(Root, Path)];
        {file, _} -> [{Path, read(Absolute)}];
        Other -> [{Path, Other}]
    end.

%% The reason is for whoever reads the test.
unless_windows(_, Test) ->
    case engine_names:system() of
        windows -> ok;
        other -> Test()
    end.

on_windows(Test) ->
    case engine_names:system() of
        windows -> Test();
        other -> ok
    end.

%% As a program of Windows holds what it works on: nobody else opens it.
hold(Path) ->
    {ok, Held} = file:open(Path, [read, raw, binary, unshared]),
    {error, eacces} = file:open(Path, [read, raw, binary]),
    Held.

release(Held) -> ok = file:close(Held).

%% Whether one could be made: Wine makes none.
junction(Target, Path) ->
    _ = system_program("cmd", ["/c", "mklink", "/J" | [filename:nativename(Name) || Name <- [Path, Target]]]),
    exists(Path).

%% Runs one of Windows' own programs.
system_program(Name, Arguments) ->
    Program = filename:join([os:getenv("SystemRoot"), "system32", Name ++ ".exe"]),
    Port = open_port({spawn_executable, Program}, [{args, Arguments}, exit_status, hide]),
    receive {Port, {exit_status, Status}} -> Status end.

%% Puts a file's last change well into the past.
age(Path) -> ok = file:change_time(Path, {{2020, 1, 1}, {12, 0, 0}}).

wait(What, Condition) -> wait(What, Condition, ?DEADLINE_MS).

wait(What, Condition, Ms) ->
    wait_until(What, Condition, erlang:monotonic_time(millisecond) + Ms).

wait_until(What, Condition, Deadline) ->
    case Condition() of
        true -> ok;
        Value ->
            case erlang:monotonic_time(millisecond) < Deadline of
                true -> receive after 20 -> wait_until(What, Condition, Deadline) end;
                false -> error({never, What, Value})
            end
    end.
