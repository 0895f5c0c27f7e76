%% Works a list off in several processes at once, as the disk and the processors
%% answer faster then. What a piece of work says and what comes of it is taken
%% in by the caller, one after the other.
%%
%% The processes are linked to the caller: they end with it.
-module(engine_pool).

-export([run/4, run/5, workers/0]).

-export_type([tell/0]).

-type tell() :: fun((term()) -> ok).

-define(WORKERS, 4).
%% Short work is handed out in bundles, so that the messages cost little.
-define(BUNDLE, 16).

-spec workers() -> pos_integer().
workers() -> ?WORKERS.

%% Do makes the result of an item. Take is called with {done, Item, Result}, and
%% with {told, Item, What} for what Do told meanwhile; it gives further items.
-spec run([Item], fun((Item, tell()) -> Result), Take, Acc) -> Acc
              when Take :: fun(({done, Item, Result} | {told, Item, term()}, Acc) -> {[Item], Acc}).
run(Items, Do, Take, Acc) -> run(?WORKERS, Items, Do, Take, Acc).

-spec run(pos_integer(), [Item], fun((Item, tell()) -> Result), Take, Acc) -> Acc
              when Take :: fun(({done, Item, Result} | {told, Item, term()}, Acc) -> {[Item], Acc}).
run(_, [], _, _, Acc) -> Acc;
run(Workers, Items, Do, Take, Acc) ->
    Pool = self(),
    Ref = make_ref(),
    Idle = [spawn_link(fun() -> work(Pool, Ref, Do) end) || _ <- lists:seq(1, min(Workers, length(Items)))],
    hand_out(#{ref => Ref, take => Take, idle => Idle, busy => 0, bundle => max(1, min(?BUNDLE, length(Items) div (4 * Workers)))},
             Items, Acc).

hand_out(#{idle := Idle, busy := 0}, [], Acc) ->
    [begin unlink(Worker), exit(Worker, kill) end || Worker <- Idle],
    Acc;
hand_out(#{idle := [Worker | Idle], busy := Busy, bundle := Bundle} = Pool, [_ | _] = Items, Acc) ->
    {Mine, Rest} = split(Bundle, Items, []),
    Worker ! {work, Mine},
    hand_out(Pool#{idle := Idle, busy := Busy + 1}, Rest, Acc);
hand_out(#{ref := Ref, take := Take, idle := Idle, busy := Busy} = Pool, Items, Acc0) ->
    receive
        {Ref, told, Item, What} ->
            {More, Acc} = Take({told, Item, What}, Acc0),
            hand_out(Pool, More ++ Items, Acc);
        {Ref, done, Worker, Results} ->
            {More, Acc} = lists:foldl(fun({Item, Result}, {Found, Acc1}) ->
                                              {New, Acc2} = Take({done, Item, Result}, Acc1),
                                              {New ++ Found, Acc2}
                                      end, {[], Acc0}, Results),
            hand_out(Pool#{idle := [Worker | Idle], busy := Busy - 1}, More ++ Items, Acc)
    end.

split(0, Items, Mine) -> {lists:reverse(Mine), Items};
split(_, [], Mine) -> {lists:reverse(Mine), []};
split(N, [Item | Items], Mine) -> split(N - 1, Items, [Item | Mine]).

work(Pool, Ref, Do) ->
    receive
        {work, Items} ->
            Results = [{Item, Do(Item, fun(What) -> Pool ! {Ref, told, Item, What}, ok end)} || Item <- Items],
            Pool ! {Ref, done, self(), Results},
            work(Pool, Ref, Do)
    end.
