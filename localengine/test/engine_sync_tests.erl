-module(engine_sync_tests).

-include_lib("eunit/include/eunit.hrl").

-import(engine_lab, [in/2, write/3, read/1, tree/1]).

-export([log/2]).

lab(Options, Test) ->
    #{level := Level} = logger:get_primary_config(),
    ok = logger:set_primary_config(level, none),
    try quiet_lab(Options, Test)
    after ok = logger:set_primary_config(level, Level)
    end.

quiet_lab(Options, Test) ->
    Lab = engine_lab:new(),
    [ok = file:make_dir(in(Lab, Name)) || Name <- ["local", "cloud"]],
    {ok, Sync} = engine_sync:start_link(
                   maps:merge(#{uid => 1, local => in(Lab, "local"), cloud => in(Lab, "cloud"),
                                tree_file => in(Lab, "1.tree"), quota => 1000000, poll => 50,
                                retry => 100, rate => unlimited, enabled => true}, Options),
                   self()),
    try Test(Sync, Lab)
    after
        engine_sync:stop(Sync),
        engine_lab:remove(Lab)
    end.

told(Sync, State) ->
    receive {sync, Sync, {state, State, Figures}} -> Figures
    after 10000 -> error({never_told, State})
    end.

saysOkAfterTheFirstLook_test() ->
    lab(#{}, fun(Sync, _) ->
                     ?assertEqual(#{uploads => 0, downloads => 0, bps => 0, timerem => 0},
                                  told(Sync, ok)),
                     receive {sync, Sync, {space, 0}} -> ok after 10000 -> error(no_space) end
             end).

countsWhatIsLeftWhileCopying_test() ->
    lab(#{enabled => false, rate => 100000},
        fun(Sync, Lab) ->
                [write(Lab, "local/" ++ Name, binary:copy(<<"x">>, 50000)) || Name <- ["a", "b"]],
                write(Lab, "cloud/c", <<"down">>),
                engine_sync:set_enabled(Sync, true),
                ?assertMatch(#{uploads := 2, downloads := 1}, told(Sync, transferring)),
                Late = (fun Wait() ->
                                case told(Sync, transferring) of
                                    #{uploads := 1, bps := Bps} = Figures when Bps > 0 -> Figures;
                                    _ -> Wait()
                                end
                        end)(),
                ?assertMatch(#{timerem := Seconds} when Seconds >= 1, Late),
                told(Sync, ok)
        end).

%% Less than the time after which everything is looked at anyway.
soon(What, Condition) -> engine_lab:wait(What, Condition, 8000).

reportOfTheRootLooksEverywhere_test() ->
    lab(#{}, fun(Sync, Lab) ->
                     write(Lab, "local/d/f", <<"1">>),
                     engine_sync:changed(Sync, [<<>>]),
                     soon(copied, fun() -> read(in(Lab, "cloud/d/f")) =:= <<"1">> end),
                     write(Lab, "local/d/g", <<"2">>),
                     engine_sync:changed(Sync, [<<>>]),
                     soon(found, fun() -> read(in(Lab, "cloud/d/g")) =:= <<"2">> end)
             end).

changeUnderTheOldNameOfARenamedDirectoryIsFound_test() ->
    lab(#{}, fun(Sync, Lab) ->
                     write(Lab, "cloud/d/f", <<"1">>),
                     soon(copied, fun() -> read(in(Lab, "local/d/f")) =:= <<"1">> end),
                     told(Sync, ok),
                     write(Lab, "local/d/g", <<"2">>),
                     ok = file:rename(in(Lab, "cloud/d"), in(Lab, "cloud/e")),
                     soon(renamed, fun() -> read(in(Lab, "local/e/f")) =:= <<"1">> end),
                     engine_sync:changed(Sync, [<<"d">>]),
                     soon(found, fun() -> read(in(Lab, "cloud/e/g")) =:= <<"2">> end)
             end).

changeThatNobodyReportedIsFoundInTime_test_() ->
    {timeout, 60,
     fun() ->
             lab(#{}, fun(Sync, Lab) ->
                              write(Lab, "local/d/f", <<"1">>),
                              told(Sync, ok),
                              write(Lab, "local/d/g", <<"2">>),
                              engine_lab:wait(found, fun() -> read(in(Lab, "cloud/d/g")) =:= <<"2">> end,
                                              40000)
                      end)
     end}.

returnOfAMissingSideIsTold_test() ->
    lab(#{}, fun(Sync, Lab) ->
                     told(Sync, ok),
                     ok = file:rename(in(Lab, "local"), in(Lab, "away")),
                     told(Sync, offline),
                     write(Lab, "away/f", <<"1">>),
                     ok = file:rename(in(Lab, "away"), in(Lab, "local")),
                     receive {sync, Sync, returned} -> ok after 4000 -> error(not_told) end,
                     told(Sync, ok),
                     ?assertEqual(<<"1">>, read(in(Lab, "cloud/f")))
             end).

whatWasDoneBeforeAPauseIsRemembered_test() ->
    lab(#{rate => 100000},
        fun(Sync, Lab) ->
                write(Lab, "local/f", <<"1">>),
                engine_sync:changed(Sync, [<<>>]),
                soon(copied, fun() -> read(in(Lab, "cloud/f")) =:= <<"1">> end),
                told(Sync, ok),
                ok = file:delete(in(Lab, "cloud/f")),
                write(Lab, "local/large", binary:copy(<<"x">>, 1000000)),
                engine_sync:changed(Sync, [<<>>]),
                soon(deleted, fun() -> not engine_lab:exists(in(Lab, "local/f")) end),
                told(Sync, transferring),
                engine_sync:set_enabled(Sync, false),
                ?assertEqual([], engine_sync:id_path(Sync, <<"f">>)),
                ?assertEqual([], engine_sync:id_path(Sync, <<"large">>))
        end).

everythingIsLookedAtAlsoWhileOnePlaceChangesAllTheTime_test() ->
    lab(#{}, fun(Sync, Lab) ->
                     write(Lab, "local/busy/f", <<"1">>),
                     told(Sync, ok),
                     Writer = spawn_link(fun Report() ->
                                                 engine_sync:changed(Sync, [<<"busy">>]),
                                                 receive stop -> ok after 5 -> Report() end
                                         end),
                     write(Lab, "cloud/quiet/g", <<"2">>),
                     soon(found, fun() -> read(in(Lab, "local/quiet/g")) =:= <<"2">> end),
                     Writer ! stop
             end).

%% A shell script that says what is written into "say" plays the watching program.
watcher(Lab, Script) ->
    Program = in(Lab, <<"watcher">>),
    ok = file:write_file(Program, ["#!/bin/sh\n", Script, "\n"]),
    ok = file:change_mode(Program, 8#755),
    Program.

changeInTheCloudThatIsToldIsFetchedAtOnce_test() ->
    engine_lab:unless_windows("no shell runs there", fun() ->
        Said = engine_lab:new(),
        [] = os:cmd("mkfifo " ++ binary_to_list(in(Said, "say"))),
        try
            lab(#{watcher => watcher(Said, "echo =; exec cat \"${0%/*}/say\"")},
                fun(Sync, Lab) ->
                        write(Lab, "cloud/d/f", <<"1">>),
                        told(Sync, ok),
                        soon(copied, fun() -> read(in(Lab, "local/d/f")) =:= <<"1">> end),
                        write(Lab, "cloud/d/g", <<"2">>),
                        ok = file:write_file(in(Said, "say"), <<"+d\n">>),
                        soon(fetched, fun() -> read(in(Lab, "local/d/g")) =:= <<"2">> end)
                end)
        after engine_lab:remove(Said)
        end
    end).

watchingProgramEndsWithTheSync_test() ->
    engine_lab:unless_windows("no shell runs there", fun() ->
        Program = engine_lab:new(),
        Pid = fun() -> string:trim(element(2, file:read_file(in(Program, "pid")))) end,
        try
            lab(#{watcher => watcher(Program, "echo $$ >\"${0%/*}/new\"; mv \"${0%/*}/new\" \"${0%/*}/pid\"; echo =; exec cat")},
                fun(_, _) -> soon(started, fun() -> engine_lab:exists(in(Program, "pid")) end) end),
            engine_lab:wait(ended, fun() -> not engine_lab:exists(<<"/proc/", (Pid())/binary>>) end)
        after engine_lab:remove(Program)
        end
    end).

cloudIsLookedAtWhenNobodyTellsAnyMore_test() ->
    engine_lab:unless_windows("no shell runs there", fun() ->
        Program = engine_lab:new(),
        try
            lab(#{watcher => watcher(Program, "echo =; exit 1")},
                fun(Sync, Lab) ->
                        told(Sync, ok),
                        write(Lab, "cloud/f", <<"1">>),
                        soon(found, fun() -> read(in(Lab, "local/f")) =:= <<"1">> end)
                end)
        after engine_lab:remove(Program)
        end
    end).


lockedFileIsToldAndTriedAgainByItself_test() ->
    Locks = ets:new(locks, [public]),
    ets:insert(Locks, {locked}),
    Self = self(),
    Opener = fun(Path, Modes) ->
                     case ets:member(Locks, locked) of
                         true -> Self ! tried, {error, eacces};
                         false -> file:open(Path, Modes)
                     end
             end,
    lab(#{opener => Opener},
        fun(Sync, Lab) ->
                logged(fun() ->
                    write(Lab, "local/f", <<"1">>),
                    engine_sync:changed(Sync, [<<>>]),
                    [receive tried -> ok after 10000 -> error(not_tried) end || _ <- [1, 2]],
                    receive {log, "left for later: {copy,cloud,<<\"f\">>}: eacces"} -> ok
                    after 10000 -> error(not_told)
                    end
                end),
                ets:delete(Locks, locked),
                engine_lab:wait(copied, fun() -> read(in(Lab, "cloud/f")) =:= <<"1">> end)
        end).

%% What is logged meanwhile comes as messages.
logged(Test) ->
    ok = logger:add_handler(?MODULE, ?MODULE, #{config => self(), level => notice}),
    ok = logger:set_handler_config(default, level, none),
    ok = logger:set_primary_config(level, notice),
    try Test()
    after
        ok = logger:set_primary_config(level, none),
        ok = logger:set_handler_config(default, level, all),
        ok = logger:remove_handler(?MODULE)
    end.

log(#{msg := {Format, Arguments}}, #{config := Receiver}) ->
    Receiver ! {log, lists:flatten(io_lib:format(Format, Arguments))};
log(_, _) -> ok.

pauseInTheMiddleOfACopyLeavesNothingHalf_test() ->
    lab(#{rate => 100000},
        fun(Sync, Lab) ->
                told(Sync, ok),
                write(Lab, "local/f", binary:copy(<<"x">>, 1000000)),
                engine_sync:changed(Sync, [<<>>]),
                told(Sync, transferring),
                engine_sync:set_enabled(Sync, false),
                ?assertEqual([1], engine_sync:id_path(Sync, <<>>)),
                ?assertEqual(#{}, tree(in(Lab, "cloud"))),
                ok = file:delete(in(Lab, "local/f")),
                write(Lab, "local/g", <<"1">>),
                engine_sync:set_enabled(Sync, true),
                told(Sync, ok),
                ?assertEqual(#{<<"g">> => <<"1">>}, tree(in(Lab, "cloud"))),
                ?assertEqual({ok, [<<"root.id">>]}, engine_file:list(in(Lab, "cloud/.orvel.cache")))
        end).

treeIsSavedOnStop_test() ->
    Lab = engine_lab:new(),
    try
        [ok = file:make_dir(in(Lab, Name)) || Name <- ["local", "cloud"]],
        write(Lab, "local/f", <<"1">>),
        {ok, Sync} = engine_sync:start_link(
                       #{uid => 1, local => in(Lab, "local"), cloud => in(Lab, "cloud"),
                         tree_file => in(Lab, "1.tree"), quota => 1000, rate => unlimited,
                         enabled => true}, self()),
        told(Sync, ok),
        Ids = engine_sync:id_path(Sync, <<"f">>),
        engine_sync:stop(Sync),
        ?assertMatch([1, _], Ids),
        ?assertEqual(Ids, engine_tree:id_path(<<"f">>, engine_tree:load(in(Lab, "1.tree"))))
    after engine_lab:remove(Lab)
    end.
