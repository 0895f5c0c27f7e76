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
                     watcher => binary() | none,    % tells what changes in the cloud
                     opener => fun(), poll => pos_integer(), retry => pos_integer()}.

-define(POLL_MS, 2000).
-define(RETRY_MS, 10000).
-define(AGAIN_MS, 300).
-define(SAVE_MS, 1000).
%% Everything is looked at this often at most, should a report of a change have
%% been missed: before the client watches, or because it cannot.
-define(FULL_LOOK_MS, 15000).
-define(FULL_LOOK_LATE_MS, 2000).
%% The share of the time that looking at everything may take: while nobody tells
%% what changes in the cloud, and when somebody does.
-define(BLIND_SHARE, 20).
-define(WATCHED_SHARE, 1000).
-define(BLIND_MAX_MS, 60000).
-define(WATCHED_MAX_MS, 3600000).
-define(WATCH_AGAIN_MS, 60000).

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
                                      retry => ?RETRY_MS, watcher => none}, Options),
              owner => Owner, tree => engine_tree:load(File), unsaved => [],
              save_timer => none, worker => none, busy => false, dirty => all,
              force_at => none, full_at => now_ms(), looked_at => now_ms(), look_ms => 0,
              look => all, watch => none, watch_at => now_ms(), poll_timer => none,
              enabled => maps:get(enabled, Options), state => none, space => none,
              missing => false},
    {ok, poll_in(0, State)}.

handle_call({id_path, Path}, _, #{tree := Tree} = State) ->
    {reply, engine_tree:id_path(Path, Tree), State};
handle_call({change, Deltas}, _, State) -> {reply, ok, change(Deltas, State)}.

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
handle_info({watch, Watch, What}, #{watch := Watch} = State) ->
    {noreply, poll_in(0, add_dirty(case What of {changed, Dirs} -> Dirs; all -> [<<>>] end, State))};
handle_info({'EXIT', Watch, Reason}, #{watch := Watch} = State) ->
    ?LOG_NOTICE("the cloud is not watched: ~0p", [Reason]),
    {noreply, everything_soon(State#{watch := none, watch_at := now_ms() + ?WATCH_AGAIN_MS})};
handle_info({'EXIT', Owner, Reason}, #{owner := Owner} = State) -> {stop, Reason, State};
handle_info(_, State) -> {noreply, State}.

terminate(_, #{watch := Watch} = State) ->
    %% It is ended by nothing else when this process ends as it should.
    _ = is_pid(Watch) andalso exit(Watch, kill),
    _ = save(end_worker(State)),
    ok.

%% ---- Passes ----------------------------------------------------------------

%% Whoever has missed what changed names the root. It is looked at like any other
%% directory at once, and then everything.
add_dirty(_, #{dirty := all} = State) -> State;
add_dirty(Dirs, #{dirty := Dirty} = State) ->
    More = State#{dirty := lists:umerge(lists:usort(Dirs), Dirty)},
    case lists:member(<<>>, Dirs) of
        true -> everything_soon(More);
        false -> More
    end.

%% Not more often than its share of the time allows.
everything_soon(#{full_at := FullAt, looked_at := LookedAt, look_ms := Ms} = State) ->
    State#{full_at := min(FullAt, max(now_ms(), LookedAt + min(Ms * ?BLIND_SHARE, ?BLIND_MAX_MS)))}.

start_pass(#{worker := none} = State) -> start_pass(State#{worker := spawn_worker(State)});
start_pass(#{watch := none, watch_at := At, options := #{watcher := Program, cloud := Cloud}} = State)
  when Program =/= none ->
    case now_ms() >= At of
        true -> start_pass(State#{watch := engine_watch:start_link(Program, Cloud)});
        false -> pass(State)
    end;
start_pass(State) -> pass(State).

pass(#{worker := Worker, dirty := Dirty, full_at := FullAt, force_at := ForceAt} = State) ->
    Now = now_ms(),
    Force = ForceAt =/= none andalso Now >= ForceAt,
    %% What was reported does not wait until everything was looked at, unless that
    %% has waited long.
    Look = case Dirty of
               [] when Now >= FullAt -> all;
               _ when Now >= FullAt + ?FULL_LOOK_LATE_MS -> all;
               _ -> Dirty
           end,
    Worker ! {pass, Look, Force},
    State#{busy := true, dirty := [], look := Look,
           force_at := case Force of true -> none; false -> ForceAt end}.

spawn_worker(#{options := Options, tree := Tree}) ->
    Sync = self(),
    spawn_link(fun() ->
                       Worker = self(),
                       Report = fun(Message) -> Sync ! {worker, Worker, Message}, ok end,
                       Change = fun(Deltas) -> gen_server:call(Sync, {change, Deltas}, infinity) end,
                       work(engine_mirror:new(Options#{tree => Tree, change => Change, report => Report}), Report)
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
        {'$gen_call', {Worker, _}, {change, Deltas}} -> drain(Worker, change(Deltas, State));
        {worker, Worker, _} -> drain(Worker, State);
        {'EXIT', Worker, _} -> drain(Worker, State)
    after 0 -> State
    end.

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
    poll_in(?AGAIN_MS, State#{missing := false, busy := false, dirty := all, watch_at := now_ms()});
report({result, {done, Result}}, State) ->
    #{space := Space, retry := Retry, again := Again} = Result,
    Rested = tell_space(Space, plan_retry(Retry, looked(Result, State#{busy := false}))),
    case {Again, Rested} of
        {true, _} -> poll_in(?AGAIN_MS, Rested);
        {false, #{dirty := []}} -> poll_in(poll_ms(State), tell_state(ok, idle(), Rested));
        %% Changes were reported meanwhile.
        {false, _} -> poll_in(0, Rested)
    end.

again(_, all) -> all;
again(Dir, Dirty) -> lists:umerge([Dir], Dirty).

%% Large trees are looked at less often.
looked(#{scan_ms := Ms}, #{look := all, watch := Watch, options := #{poll := Poll}} = State) ->
    Rest = case Watch of
               none -> max(Poll, min(Ms * ?BLIND_SHARE, ?BLIND_MAX_MS));
               _ -> max(?FULL_LOOK_MS, min(Ms * ?WATCHED_SHARE, ?WATCHED_MAX_MS))
           end,
    State#{looked_at := now_ms(), look_ms := Ms, full_at := now_ms() + Rest};
looked(_, State) -> State.

plan_retry(false, State) -> State#{force_at := none};
plan_retry(true, #{force_at := none, options := #{retry := Retry}} = State) ->
    State#{force_at := now_ms() + Retry};
plan_retry(true, State) -> State.

poll_ms(#{options := #{poll := Poll}}) -> Poll.

now_ms() -> erlang:monotonic_time(millisecond).

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

change(Deltas, #{tree := Tree, save_timer := Timer, unsaved := Unsaved} = State) ->
    lists:foreach(fun(Delta) -> engine_tree:change(Delta, Tree) end, Deltas),
    State#{unsaved := lists:reverse(Deltas, Unsaved),
           save_timer := case Timer of
                             none -> erlang:send_after(?SAVE_MS, self(), save);
                             _ -> Timer
                         end}.

save(#{unsaved := []} = State) -> State;
save(#{unsaved := Unsaved, tree := Tree, options := #{tree_file := File}} = State) ->
    case engine_tree:save(File, lists:reverse(Unsaved), Tree) of
        ok -> State#{unsaved := []};
        {error, Reason} ->
            ?LOG_ERROR("the tree was not saved: ~0p", [Reason]),
            State#{save_timer := erlang:send_after(?RETRY_MS, self(), save)}
    end.
