%% Keeps one signed-in account the same on both sides. The passes run in a
%% worker of their own, so that this process always answers; a pass is stopped
%% by ending the worker, which loses nothing.
%%
%% The owner receives {sync, Pid, {state, State, Figures}},
%% {sync, Pid, {space, Bytes}} and, when a side that was missing is there
%% again, {sync, Pid, returned}.
-module(engine_sync).

-behaviour(gen_server).

-include_lib("kernel/include/logger.hrl").

-export([start_link/2, changed/2, set_enabled/2, id_path/2, stop/1]).
-export([init/1, handle_call/3, handle_cast/2, handle_info/2, terminate/2]).

-export_type([options/0]).

-type options() :: #{uid := pos_integer(), local := binary(), cloud := binary(),
                     tree_file := binary(), quota := non_neg_integer(),
                     rate := pos_integer() | unlimited, enabled := boolean(),
                     opener => fun(), poll => pos_integer(), retry => pos_integer()}.

-define(POLL_MS, 2000).
-define(RETRY_MS, 10000).
-define(AGAIN_MS, 300).
%% The local side is looked at in full this often, should a report of a change
%% have been missed: before the client watches, or because it cannot.
-define(FULL_LOOK_MS, 15000).
%% A look or a save may take up to this share of the time.
-define(REST_FACTOR, 20).

-spec start_link(options(), pid()) -> {ok, pid()}.
start_link(Options, Owner) -> gen_server:start_link(?MODULE, {Options, Owner}, []).

%% Directories of the local side in which something changed.
-spec changed(pid(), [binary()]) -> ok.
changed(Sync, Dirs) -> gen_server:cast(Sync, {changed, Dirs}).

-spec set_enabled(pid(), boolean()) -> ok.
set_enabled(Sync, Enabled) -> gen_server:cast(Sync, {enabled, Enabled}).

-spec id_path(pid(), binary()) -> [pos_integer()].
id_path(Sync, Path) -> gen_server:call(Sync, {id_path, Path}).

-spec stop(pid()) -> ok.
stop(Sync) -> gen_server:stop(Sync).

init({#{tree_file := File} = Options, Owner}) ->
    process_flag(trap_exit, true),
    State = #{options => maps:merge(#{opener => fun file:open/2, poll => ?POLL_MS,
                                      retry => ?RETRY_MS}, Options),
              owner => Owner, tree => engine_tree:load(File), unsaved => false,
              save_timer => none, worker => none, busy => false, dirty => all,
              force_at => none, full_at => erlang:monotonic_time(millisecond),
              poll_timer => none,
              enabled => maps:get(enabled, Options), state => none, space => none,
              missing => false},
    {ok, poll_in(0, State)}.

handle_call({id_path, Path}, _, #{tree := Tree} = State) ->
    {reply, engine_tree:id_path(Path, Tree), State}.

handle_cast({changed, Dirs}, State) ->
    {noreply, poll_in(0, add_dirty(Dirs, State))};
handle_cast({enabled, Enabled}, #{enabled := Enabled} = State) -> {noreply, State};
handle_cast({enabled, true}, State) ->
    {noreply, poll_in(0, State#{enabled := true, state := none})};
handle_cast({enabled, false}, State) ->
    {noreply, save(end_worker(State#{enabled := false}))}.

handle_info(poll, #{enabled := true, busy := false} = State) ->
    {noreply, start_pass(State#{poll_timer := none})};
handle_info(poll, State) -> {noreply, State#{poll_timer := none}};
handle_info(save, State) -> {noreply, save(State#{save_timer := none})};
handle_info({worker, Worker, Report}, #{worker := Worker} = State) ->
    {noreply, report(Report, State)};
handle_info({'EXIT', Worker, Reason}, #{worker := Worker} = State) ->
    ?LOG_ERROR("a pass failed: ~0p", [Reason]),
    {noreply, poll_in(poll_ms(State), State#{worker := none, busy := false, dirty := all})};
handle_info({'EXIT', Owner, Reason}, #{owner := Owner} = State) -> {stop, Reason, State};
handle_info(_, State) -> {noreply, State}.

terminate(_, State) ->
    _ = save(end_worker(State)),
    ok.

%% ---- Passes ----------------------------------------------------------------

add_dirty(_, #{dirty := all} = State) -> State;
add_dirty(all, State) -> State#{dirty := all};
add_dirty(Dirs, #{dirty := Dirty} = State) ->
    %% The client names the root, too, when it has missed what changed.
    case lists:member(<<>>, Dirs) of
        true -> State#{dirty := all};
        false -> State#{dirty := Dirs ++ Dirty}
    end.

start_pass(#{worker := none} = State) -> start_pass(State#{worker := spawn_worker(State)});
start_pass(#{worker := Worker, dirty := Dirty, full_at := FullAt, force_at := ForceAt} = State) ->
    Now = erlang:monotonic_time(millisecond),
    Force = ForceAt =/= none andalso Now >= ForceAt,
    Look = case Now >= FullAt of
               true -> all;
               false -> Dirty
           end,
    Worker ! {pass, Look, Force},
    State#{busy := true, dirty := [],
           full_at := case Look of
                          all -> Now + ?FULL_LOOK_MS;
                          _ -> FullAt
                      end,
           force_at := case Force of true -> none; false -> ForceAt end}.

spawn_worker(#{options := Options, tree := Tree}) ->
    Sync = self(),
    spawn_link(fun() ->
                       Worker = self(),
                       Report = fun(Message) -> Sync ! {worker, Worker, Message}, ok end,
                       work(engine_mirror:new(Options#{tree => Tree, report => Report}), Report)
               end).

work(Mirror, Report) ->
    receive
        {pass, Dirs, Force} ->
            {Result, Next} = engine_mirror:pass(Dirs, Force, Mirror),
            Report({result, Result}),
            work(Next, Report)
    end.

end_worker(#{worker := none} = State) -> State#{busy := false};
end_worker(#{worker := Worker} = State) ->
    Monitor = monitor(process, Worker),
    unlink(Worker),
    exit(Worker, kill),
    receive {'DOWN', Monitor, process, Worker, _} -> ok end,
    drain(Worker, State#{worker := none, busy := false, dirty := all}).

%% What it had done until then was done.
drain(Worker, State) ->
    receive
        {worker, Worker, {tree, Delta}} -> drain(Worker, change(Delta, State));
        {worker, Worker, _} -> drain(Worker, State);
        {'EXIT', Worker, _} -> drain(Worker, State)
    after 0 -> State
    end.

report({tree, Delta}, State) -> change(Delta, State);
report({look_again, all}, State) -> add_dirty(all, State);
report({look_again, Dir}, State) -> State#{dirty := again(Dir, maps:get(dirty, State))};
report({failed, Action, Reason}, State) ->
    ?LOG_NOTICE("left for later: ~0tp: ~0tp", [Action, Reason]),
    State;
report({held, Path, Reason}, State) ->
    ?LOG_NOTICE("stays where it is, as Windows cannot hold its name: ~ts: ~0tp", [Path, Reason]),
    State;
report({progress, Figures}, State) -> tell_state(transferring, Figures, State);
report({result, {blocked, Side}}, State) ->
    case State of
        #{state := {offline, _}} -> ok;
        _ -> ?LOG_NOTICE("the ~s side is not there", [Side])
    end,
    poll_in(poll_ms(State),
            tell_state(offline, idle(), State#{missing := true, busy := false, dirty := all}));
report({result, {done, _}}, #{missing := true, owner := Owner} = State) ->
    %% Whoever watched the missing side has lost it, and must find it again
    %% before the next look.
    Owner ! {sync, self(), returned},
    poll_in(?AGAIN_MS, State#{missing := false, busy := false, dirty := all});
report({result, {done, Result}}, State) ->
    #{space := Space, retry := Retry, again := Again, scan_ms := ScanMs} = Result,
    Rested = tell_space(Space, plan_retry(Retry, rest(ScanMs, State#{busy := false}))),
    case {Again, Rested} of
        {true, _} -> poll_in(max(?AGAIN_MS, ScanMs), Rested);
        {false, #{dirty := []}} ->
            poll_in(max(poll_ms(State), min(ScanMs * ?REST_FACTOR, 60000)),
                    tell_state(ok, idle(), Rested));
        %% Changes were reported meanwhile.
        {false, _} -> poll_in(0, Rested)
    end.

again(_, all) -> all;
again(Dir, Dirty) -> [Dir | Dirty].

%% Large trees are looked at less often.
rest(ScanMs, #{full_at := FullAt} = State) ->
    Rested = erlang:monotonic_time(millisecond) + min(ScanMs * ?REST_FACTOR, 60000),
    State#{full_at := max(FullAt, Rested)}.

plan_retry(false, State) -> State#{force_at := none};
plan_retry(true, #{force_at := none, options := #{retry := Retry}} = State) ->
    State#{force_at := erlang:monotonic_time(millisecond) + Retry};
plan_retry(true, State) -> State.

poll_ms(#{options := #{poll := Poll}}) -> Poll.

poll_in(_, #{enabled := false} = State) -> State;
poll_in(Ms, #{poll_timer := Timer} = State) ->
    _ = Timer =/= none andalso erlang:cancel_timer(Timer),
    State#{poll_timer := erlang:send_after(Ms, self(), poll)}.

%% ---- What is told ----------------------------------------------------------

idle() -> #{uploads => 0, downloads => 0, bps => 0, timerem => 0}.

tell_state(Name, Figures, #{state := {Name, Figures}} = State) -> State;
tell_state(Name, Figures, #{owner := Owner} = State) ->
    Owner ! {sync, self(), {state, Name, Figures}},
    State#{state := {Name, Figures}}.

tell_space(Space, #{space := Space} = State) -> State;
tell_space(Space, #{owner := Owner} = State) ->
    Owner ! {sync, self(), {space, Space}},
    State#{space := Space}.

%% ---- The tree --------------------------------------------------------------

change(Delta, #{tree := Tree, save_timer := Timer} = State) ->
    State#{tree := engine_tree:change(Delta, Tree), unsaved := true,
           save_timer := case Timer of
                             none -> erlang:send_after(1000, self(), save);
                             _ -> Timer
                         end}.

save(#{unsaved := false} = State) -> State;
save(#{tree := Tree, options := #{tree_file := File}} = State) ->
    Started = erlang:monotonic_time(millisecond),
    case engine_tree:save(File, Tree) of
        ok -> ok;
        {error, Reason} -> ?LOG_ERROR("the tree was not saved: ~0p", [Reason])
    end,
    Took = erlang:monotonic_time(millisecond) - Started,
    %% A large tree is saved less often while things keep changing.
    Timer = case Took > 50 of
                true -> erlang:send_after(Took * ?REST_FACTOR, self(), save);
                false -> none
            end,
    State#{unsaved := false, save_timer := Timer}.
