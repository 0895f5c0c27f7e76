-module(engine_place_tests).

-include_lib("eunit/include/eunit.hrl").

-import(engine_lab, [in/2]).

lab(Test) ->
    Lab = engine_lab:new(),
    try Test(Lab) after engine_lab:remove(Lab) end.

oneLockAStateDirectory_test() ->
    lab(fun(Lab) ->
                Other = in(Lab, "other"),
                ok = file:make_dir(Other),
                {ok, Lock} = engine_place:lock(Lab, 0),
                ?assertEqual(busy, engine_place:lock(Lab, 0)),
                {ok, OtherLock} = engine_place:lock(Other, 0),
                engine_place:unlock(OtherLock),
                engine_place:unlock(Lock),
                {ok, Again} = engine_place:lock(Lab, 0),
                engine_place:unlock(Again)
        end).

lockIsWaitedFor_test() ->
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

ofManyAtTheSameMomentOneGetsTheLock_test() ->
    lab(fun(Lab) ->
                Self = self(),
                Contenders = [spawn_link(fun() ->
                                                 receive go -> ok end,
                                                 Self ! {self(), element(1, tuple(engine_place:lock(Lab, 0)))},
                                                 receive go -> ok end
                                         end) || _ <- lists:seq(1, 40)],
                [Contender ! go || Contender <- Contenders],
                Results = [receive {Contender, Result} -> Result end || Contender <- Contenders],
                [Contender ! go || Contender <- Contenders],
                ?assertEqual([ok | lists:duplicate(39, busy)], lists:reverse(lists:sort(Results)))
        end).

tuple(Result) when is_tuple(Result) -> Result;
tuple(Result) -> {Result}.

%% As a killed engine leaves it on Windows.
fileThatIsLeftOfALockHoldsNobodyUp_test() ->
    lab(fun(Lab) ->
                engine_lab:write(Lab, "engine.lock", <<"left">>),
                {ok, Lock} = engine_place:lock(Lab, 0),
                ?assertEqual(busy, engine_place:lock(Lab, 0)),
                engine_place:unlock(Lock)
        end).

cloudIsMadeOnceOnly_test() ->
    lab(fun(Base) ->
                Lab = in(Base, <<"stanje č"/utf8>>),
                ok = file:make_dir(Lab),
                Root = engine_place:cloud_root(Lab, 7),
                ?assertEqual(in(Lab, "cloud/7"), Root),
                ?assert(filelib:is_dir(Root)),
                ok = file:del_dir_r(in(Lab, "cloud")),
                ?assertEqual(Root, engine_place:cloud_root(Lab, 7)),
                ?assertNot(engine_lab:exists(Root))
        end).
