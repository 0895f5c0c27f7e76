%% What the client asks for and what it is told: the configuration, the
%% sign-in, and the commands of the signed-in person.
-module(engine_session).

-behaviour(gen_server).

-include_lib("kernel/include/logger.hrl").

-export([start_link/1, message/2, stop/1]).
-export([init/1, handle_call/3, handle_cast/2, handle_info/2]).

-define(LOCK_MS, 3000).
-define(REOPEN_MS, 2000).
-define(SERVER_ERROR, 3).

-spec start_link(pid()) -> pid().
start_link(Link) ->
    {ok, Session} = gen_server:start_link(?MODULE, Link, []),
    Session.

%% One message of the client, decoded.
-spec message(pid(), engine_json:value()) -> ok.
message(Session, Message) -> gen_server:cast(Session, {message, Message}).

%% Saves what is known and ends.
-spec stop(pid()) -> ok.
stop(Session) -> gen_server:call(Session, stop, 3000).

init(Link) ->
    process_flag(trap_exit, true),
    {ok, #{link => Link, config => none, state_dir => none, lock => none,
           accounts => none, shares => #{}, user => none, uid => 0, root => none,
           sync => none, net => logout, space => 0, enabled => true}}.

handle_call(stop, _, State) -> {stop, normal, ok, close(State)}.

handle_cast({message, Message}, State) ->
    try {noreply, handle(Message, State)}
    catch
        throw:state_in_use -> {stop, shutdown, State};
        Class:_:Stack ->
            %% Without the reason: it may hold what the message held.
            ?LOG_ERROR("a message failed: ~0p at ~0p", [Class, where(Stack)]),
            {noreply, State}
    end.

where(Stack) ->
    [{Module, Function, proplists:get_value(line, Info)}
     || {Module, Function, _, Info} <- lists:sublist(Stack, 3)].

handle_info({sync, Sync, Event}, #{sync := Sync} = State) -> {noreply, sync(Event, State)};
handle_info({'EXIT', Sync, Reason}, #{sync := Sync} = State) ->
    ?LOG_ERROR("syncing stopped: ~0p", [Reason]),
    erlang:send_after(?REOPEN_MS, self(), {reopen, maps:get(uid, State)}),
    {noreply, State#{sync := none}};
handle_info({reopen, Uid}, #{uid := Uid, sync := none} = State) when Uid =/= 0 ->
    {noreply, open(State)};
handle_info(_, State) -> {noreply, State}.

%% ---- Messages --------------------------------------------------------------

handle(#{<<"cmd">> := Command} = Message, #{config := Config} = State) when Config =/= none ->
    command(Command, Message, State);
handle(#{<<"cmd">> := _}, State) -> State;
handle(#{<<"statedir">> := StateDir} = Config, State)
  when is_binary(StateDir), StateDir =/= <<>> ->
    configure(StateDir, State#{config := Config});
handle(_, State) -> State.

configure(StateDir, #{state_dir := StateDir} = State) -> State;
configure(StateDir, #{state_dir := Before} = State0) ->
    State = case Before of
                none -> State0;
                _ -> close(State0)
            end,
    _ = engine_file:ensure_dir(StateDir),
    case engine_place:lock(StateDir, ?LOCK_MS) of
        busy ->
            %% Two engines at one state would undo each other's work.
            tell(engine_events:exit(), State),
            throw(state_in_use);
        {ok, Lock} ->
            engine_place:log_to(StateDir),
            Accounts = engine_accounts:load(StateDir),
            Ready = State#{state_dir := StateDir, lock := Lock, accounts := Accounts,
                           shares := engine_share:load(StateDir)},
            case engine_accounts:remembered(StateDir, Accounts) of
                {ok, User, Uid} -> open(Ready#{user := User, uid := Uid});
                none -> tell_state(logout, idle(), Ready)
            end
    end.

command(<<"login">>, #{<<"username">> := User, <<"password">> := Password} = Message, State)
  when is_binary(User), is_binary(Password) ->
    Cid = case Message of
              #{<<"cid">> := Text} when is_binary(Text) -> Text;
              _ -> <<>>
          end,
    login(User, Password, Cid, State);
command(<<"logout">>, _, #{state_dir := StateDir} = State) ->
    engine_accounts:forget(StateDir),
    tell_state(logout, idle(), end_sync(State));
command(<<"syncenabled">>, #{<<"val">> := Enabled}, #{sync := Sync} = State)
  when is_boolean(Enabled) ->
    _ = Sync =/= none andalso engine_sync:set_enabled(Sync, Enabled),
    State#{enabled := Enabled};
command(<<"pathschaned">>, #{<<"paths">> := Paths}, #{sync := Sync, root := Root} = State)
  when Sync =/= none, is_list(Paths) ->
    case [Dir || Path <- Paths, is_binary(Path),
                 Dir <- [engine_path:relative(Path, Root)], Dir =/= outside] of
        [] -> ok;
        Dirs -> engine_sync:changed(Sync, Dirs)
    end,
    State;
command(<<"pathquery">>, #{<<"what">> := What, <<"path">> := Path}, State)
  when is_binary(What), is_binary(Path) ->
    tell(engine_events:query_result(What, id_path(Path, State)), State);
command(<<"sharefolder">>, #{<<"username">> := User, <<"path">> := Path} = Message, State)
  when is_binary(User), is_binary(Path) ->
    MessageId = case Message of
                    #{<<"msgid">> := Id} when is_integer(Id) -> Id;
                    _ -> 0
                end,
    share(User, Path, MessageId, State);
command(Check, _, State) when Check =:= <<"checkport">>; Check =:= <<"resetupnp">> ->
    port_state(State);
command(_, _, State) -> State.

login(User, Password, Cid, #{accounts := Accounts, state_dir := StateDir} = State) ->
    case engine_accounts:login(Accounts, User, Password, Cid) of
        {ok, Uid} ->
            _ = engine_accounts:remember(StateDir, User, Uid),
            open((end_sync(State))#{user := User, uid := Uid});
        {choose, Uids} -> tell(engine_events:login_ids(Uids), State);
        %% A failed attempt does not end a sign-in that stands.
        refused when map_get(uid, State) =/= 0 -> State;
        refused -> tell_state(logout, idle(), State)
    end.

id_path(_, #{sync := none}) -> [];
id_path(Path, #{sync := Sync, root := Root}) ->
    case engine_path:relative(Path, Root) of
        outside -> [];
        Inside -> engine_sync:id_path(Sync, Inside)
    end.

share(User, Path, MessageId, #{sync := Sync, net := Net} = State)
  when Sync =:= none; Net =:= offline; Net =:= logout ->
    _ = {User, Path},
    tell(engine_events:share_result(MessageId, false, ?SERVER_ERROR), State);
share(User, Path, MessageId, #{accounts := Accounts, shares := Shares, uid := Uid,
                               user := Self, root := Root, state_dir := StateDir} = State) ->
    IsFolder = fun(Folder) ->
                       Absolute = engine_file:join(Root, Folder),
                       Folder =:= <<>> orelse
                           element(1, to_tuple(engine_file:look(Absolute))) =:= dir
               end,
    Facts = #{owner => engine_accounts:is_owner(Accounts, Self, Uid),
              user => engine_accounts:has_user(Accounts, User), folder => IsFolder},
    case engine_share:share(Shares, Uid, engine_path:relative(Path, Root), User, Facts) of
        {error, Code} -> tell(engine_events:share_result(MessageId, false, Code), State);
        {ok, Now} ->
            case engine_share:save(StateDir, Now) of
                ok -> tell(engine_events:share_result(MessageId, true, 0),
                           State#{shares := Now});
                {error, _} -> tell(engine_events:share_result(MessageId, false, ?SERVER_ERROR),
                                   State)
            end
    end.

to_tuple(Found) when is_tuple(Found) -> Found;
to_tuple(Found) -> {Found}.

%% No port is served here. What can be said truthfully is whether the
%% configured one is free to be opened.
port_state(#{config := Config} = State) ->
    Port = case Config of
               #{<<"port">> := P} when is_integer(P), P > 0, P < 65536 -> P;
               _ -> 0
           end,
    Works = case gen_tcp:listen(Port, [{reuseaddr, true}]) of
                {ok, Socket} when Port =/= 0 -> gen_tcp:close(Socket), true;
                {ok, Socket} -> gen_tcp:close(Socket), false;
                {error, _} -> false
            end,
    tell(engine_events:port_state([], false, Works, erlang:system_time(second)), State).

%% ---- The account -----------------------------------------------------------

open(#{uid := Uid, state_dir := StateDir, accounts := Accounts} = State) ->
    case root(State) of
        {error, Reason} ->
            ?LOG_ERROR("the sync folder cannot be made: ~0p", [Reason]),
            erlang:send_after(?REOPEN_MS, self(), {reopen, Uid}),
            case State of
                #{net := offline} -> State;
                _ -> tell_state(offline, idle(), State)
            end;
        {ok, Root} ->
            %% The client looks for the cache directory when it is told of the
            %% roots.
            _ = engine_roots:claim(Root, Uid),
            Cloud = engine_place:cloud_root(StateDir, Uid),
            #{quota := Quota} = engine_accounts:account(Accounts, Uid),
            #{enabled := Enabled} = State,
            {ok, Sync} = engine_sync:start_link(
                           #{uid => Uid, local => Root, cloud => Cloud, quota => Quota,
                             tree_file => engine_tree:file_name(StateDir, Uid),
                             rate => engine_place:rate(), poll => engine_place:poll_ms(),
                             watcher => engine_place:watcher(),
                             enabled => Enabled}, self()),
            Opened = tell_state(first_state(Enabled), idle(),
                                State#{sync := Sync, root := Root, space := unknown}),
            tell(engine_events:roots_changed(), Opened)
    end.

%% Until the first look is done nothing is known to be the same.
first_state(true) -> transferring;
first_state(false) -> ok.

%% A roots file is believed as it stands, also when its folder is missing:
%% where the folder went is the user's to say.
root(#{uid := Uid, state_dir := StateDir, config := Config}) ->
    case engine_roots:read(StateDir, Uid) of
        {ok, Root} -> {ok, Root};
        none ->
            Name = text(<<"homefolder">>, Config, first_folder(Config)),
            Home = engine_place:home(),
            Parent = text(<<"homepath">>, Config, Home),
            Chosen = case engine_roots:choose(Parent, Name, Uid) of
                         {error, _} when Parent =/= Home ->
                             engine_roots:choose(Home, Name, Uid);
                         Result -> Result
                     end,
            case Chosen of
                {ok, Root} ->
                    case engine_roots:write(StateDir, Uid, Root) of
                        ok -> {ok, Root};
                        {error, Reason} -> {error, Reason}
                    end;
                {error, Reason} -> {error, Reason}
            end
    end.

text(Key, Config, Default) ->
    case Config of
        #{Key := Text} when is_binary(Text), Text =/= <<>> -> Text;
        _ -> Default
    end.

first_folder(#{<<"syncfolders">> := [Name | _]}) when is_binary(Name), Name =/= <<>> -> Name;
first_folder(_) -> <<"Orvel Storage">>.

sync({state, Name, Figures}, State) -> tell_state(Name, Figures, State);
sync(returned, State) -> tell(engine_events:roots_changed(), State);
sync({space, Space}, #{accounts := Accounts, uid := Uid} = State) ->
    #{quota := Quota, package := Package} = engine_accounts:account(Accounts, Uid),
    tell(engine_events:space_used(Space, Quota, Package), State#{space := Space}).

end_sync(#{sync := Sync} = State) ->
    _ = case Sync of
            none -> ok;
            _ -> unlink(Sync), catch engine_sync:stop(Sync)
        end,
    State#{sync := none, user := none, uid := 0, root := none}.

close(#{lock := Lock} = State) ->
    Closed = end_sync(State),
    engine_place:unlock(Lock),
    Closed#{lock := none, state_dir := none}.

%% ---- What is told ----------------------------------------------------------

idle() -> #{uploads => 0, downloads => 0, bps => 0, timerem => 0}.

tell_state(Name, Figures, #{uid := Uid} = State) ->
    tell(engine_events:network_state(Name, Uid, Figures), State#{net := Name}).

tell(Event, #{link := Link} = State) ->
    ok = engine_link:send(Link, Event),
    State.
