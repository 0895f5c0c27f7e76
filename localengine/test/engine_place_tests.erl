-module(engine_place_tests).

-include_lib("eunit/include/eunit.hrl").

lab(Test) ->
    Lab = engine_lab:new(),
    try Test(Lab) after engine_lab:remove(Lab) end.

oneLockAStateDirectory_test() ->
    engine_lab:unless_windows("no such lock is there", fun oneLock/0).

oneLock() ->
    lab(fun(Lab) ->
                {ok, Lock} = engine_place:lock(Lab, 0),
                ?assertEqual(busy, engine_place:lock(Lab, 0)),
                {ok, Other} = engine_place:lock(<<Lab/binary, "x">>, 0),
                engine_place:unlock(Other),
                engine_place:unlock(Lock),
                {ok, Again} = engine_place:lock(Lab, 0),
                engine_place:unlock(Again)
        end).

lockIsWaitedFor_test() ->
    engine_lab:unless_windows("no such lock is there", fun waitedFor/0).

waitedFor() ->
    lab(fun(Lab) ->
                Self = self(),
                Holder = spawn(fun() ->
                                       {ok, _} = engine_place:lock(Lab, 0),
                                       Self ! held,
                                       receive go -> ok end
                               end),
                receive held -> ok end,
                spawn_link(fun() -> Self ! {second, engine_place:lock(Lab, 5000)} end),
                Holder ! go,
                ?assertMatch({ok, _}, receive {second, Result} -> Result end)
        end).

cloudIsMadeOnceOnly_test() ->
    lab(fun(Base) ->
                Lab = engine_lab:in(Base, <<"stanje č"/utf8>>),
                ok = file:make_dir(Lab),
                Root = engine_place:cloud_root(Lab, 7),
                ?assertEqual(engine_lab:in(Lab, "cloud/7"), Root),
                ?assert(filelib:is_dir(Root)),
                ok = file:del_dir_r(engine_lab:in(Lab, "cloud")),
                ?assertEqual(Root, engine_place:cloud_root(Lab, 7)),
                ?assertNot(engine_lab:exists(Root))
        end).
