-module(engine_pool_tests).

-include_lib("eunit/include/eunit.hrl").

everyItemIsDoneOnceAndWhatComesOfItIsAdded_test() ->
    Items = lists:seq(1, 500),
    Done = engine_pool:run(Items, fun(N, _) -> 2 * N end,
                           fun({done, N, Double}, Found) ->
                                   Double = 2 * N,
                                   %% Each of the first hundred leads to another one.
                                   {[1000 + N || N =< 100], [N | Found]}
                           end, []),
    ?assertEqual(Items ++ lists:seq(1001, 1100), lists:sort(Done)).

whatIsToldMeanwhileComesBeforeTheResult_test() ->
    Said = engine_pool:run(3, [a, b], fun(Item, Tell) -> Tell(1), Tell(2), Item end,
                           fun({told, Item, N}, Found) -> {[], [{Item, N} | Found]};
                              ({done, Item, Item}, Found) -> {[], [{Item, done} | Found]}
                           end, []),
    [?assertEqual([1, 2, done], [What || {I, What} <- lists:reverse(Said), I =:= Item]) || Item <- [a, b]].

workGoesOnAtOnce_test() ->
    Pool = self(),
    Both = engine_pool:run(2, [1, 2],
                           fun(_, _) ->
                                   Pool ! {here, self()},
                                   receive go_on -> true after 10000 -> false end
                           end,
                           fun({done, _, Met}, Found) -> {[], [Met | Found]} end,
                           begin
                               spawn_link(fun() ->
                                                  Workers = [Worker || Worker <- wait_for(Pool, 2)],
                                                  [Worker ! go_on || Worker <- Workers]
                                          end),
                               []
                           end),
    ?assertEqual([true, true], Both).

%% Looks into another process's letters, which the pool leaves alone.
wait_for(Pool, Count) ->
    {messages, Messages} = process_info(Pool, messages),
    case [Worker || {here, Worker} <- Messages] of
        Workers when length(Workers) =:= Count -> Workers;
        _ -> receive after 5 -> wait_for(Pool, Count) end
    end.

nothingToDoIsDone_test() ->
    ?assertEqual(left, engine_pool:run([], fun(_, _) -> error(called) end, fun(_, _) -> error(called) end, left)).

whatFailsEndsTheCaller_test() ->
    #{level := Level} = logger:get_primary_config(),
    ok = logger:set_primary_config(level, none),
    try
        {_, Monitor} = spawn_monitor(fun() ->
                                             engine_pool:run([1], fun(_, _) -> exit(broken) end,
                                                             fun(_, Acc) -> {[], Acc} end, [])
                                     end),
        receive {'DOWN', Monitor, process, _, Reason} -> ?assertEqual(broken, Reason)
        after 10000 -> error(goes_on)
        end
    after ok = logger:set_primary_config(level, Level)
    end.
