%% Plays the client: an installation directory, the engine's process with the
%% client's arguments, environment and working directory, and the messages.
-module(engine_client).

-export([install/1, start/1, start/2, send/2, raw/2, login/3, login/4, logout/1, changed/2,
         event/2, event/3, no_event_yet/2, state/2, events/1, kill/1, close/1, gone/1,
         config/1, config/2, root/1]).

-define(DEADLINE_MS, 20000).

%% The layout that the install rules make. On Windows there is one for all, as
%% the virtual machine lies in it.
install(Lab) ->
    ok = filelib:ensure_path(filename:join(Lab, "home")),
    engine_lab:unless_windows("it is there", fun() -> lay_out(filename:join(Lab, "app")) end).

lay_out(App) ->
    Bin = filename:join(App, "erlang/erts-9.0/bin"),
    ok = filelib:ensure_path(Bin),
    ok = filelib:ensure_path(filename:join(App, "srv")),
    ok = file:make_symlink(os:getenv("ORVEL_TEST_LAUNCHER"), filename:join(Bin, "erl.exe")),
    ok = file:make_symlink(os:getenv("ORVEL_TEST_EBIN"), filename:join(App, "srv/ebin")),
    ok = file:make_symlink("../srv", filename:join(App, "erlang/srv")).

app(Lab) ->
    case engine_names:system() of
        windows -> os:getenv("ORVEL_TEST_INSTALLATION");
        other -> binary_to_list(filename:join(Lab, "app"))
    end.

start(Lab) -> start(Lab, []).

start(Lab, Environment) ->
    Erlang = filename:join(app(Lab), "erlang"),
    Bin = filename:join(Erlang, "erts-9.0/bin"),
    Port = open_port({spawn_executable, filename:join(Bin, "erl.exe")},
                     [{args, ["+Bd", "-noshell", "-eval",
                              "begin file:set_cwd(\"../../srv/ebin\"),"
                              "rtsp:startplain(false) end"]},
                      {cd, Bin}, stream, binary, exit_status, stderr_to_stdout,
                      {env, [{"ROOTDIR", Erlang}, {"BINDIR", Bin}, {"LC_ALL", "C"},
                             {"HOME", binary_to_list(filename:join(Lab, "home"))},
                             {"ORVEL_LOCAL_CLOUD", false}, {"ORVEL_LOCAL_RATE", false},
                             {"ORVEL_LOCAL_POLL_MS", "100"} | Environment]}]),
    {os_pid, Pid} = erlang:port_info(Port, os_pid),
    #{port => Port, pid => Pid, lab => Lab}.

config(Client) -> config(Client, #{}).

config(#{lab := Lab} = Client, More) ->
    send(Client, maps:merge(#{<<"statedir">> => state_dir(Lab),
                              <<"syncfolders">> => [<<"Orvel Storage">>],
                              <<"homepath">> => <<>>, <<"homefolder">> => <<>>,
                              <<"tmpdir">> => filename:join(Lab, "tmp"),
                              <<"port">> => 1554, <<"version">> => 12}, More)).

state_dir(Lab) -> filename:join(Lab, "state").

root(Lab) -> filename:join(Lab, "home/Orvel Storage").

send(Client, Message) -> raw(Client, ["\njson", json(Message), "\n"]).

%% The client writes texts as UTF-8 and escapes only what it must.
json(Text) when is_binary(Text) ->
    Escaped = lists:foldl(fun({From, To}, T) ->
                                  binary:replace(T, From, To, [global])
                          end, Text, [{<<"\\">>, <<"\\\\">>}, {<<"\"">>, <<"\\\"">>},
                                      {<<"\n">>, <<"\\n">>}]),
    [$", Escaped, $"];
json(List) when is_list(List) -> ["[ ", lists:join(", ", [json(E) || E <- List]), " ]"];
json(Map) when is_map(Map) ->
    ["{ ", lists:join(", ", [[json(K), " : ", json(V)] || {K, V} <- maps:to_list(Map)]), " }"];
json(Other) -> engine_json:encode(Other).

raw(#{port := Port}, Bytes) -> true = port_command(Port, Bytes).

login(Client, User, Password) -> login(Client, User, Password, <<>>).

login(Client, User, Password, Cid) ->
    send(Client, #{<<"cmd">> => <<"login">>, <<"username">> => User,
                   <<"password">> => Password, <<"cid">> => Cid}).

logout(Client) -> send(Client, #{<<"cmd">> => <<"logout">>}).

changed(Client, Paths) ->
    send(Client, #{<<"cmd">> => <<"pathschaned">>, <<"paths">> => Paths}).

%% The next event of a kind; those before it are taken too.
event(Client, What) -> event(Client, What, fun(_) -> true end).

event(Client, What, Accept) ->
    next(Client, What, Accept, erlang:monotonic_time(millisecond) + ?DEADLINE_MS, []).

next(#{port := Port} = Client, What, Accept, Deadline, Before) ->
    case take(Port, max(0, Deadline - erlang:monotonic_time(millisecond))) of
        #{<<"what">> := What} = Event ->
            case Accept(Event) of
                true -> Event;
                false -> next(Client, What, Accept, Deadline, [Event | Before])
            end;
        #{} = Event -> next(Client, What, Accept, Deadline, [Event | Before]);
        Nothing -> error({no_event, What, Nothing, lists:reverse(Before)})
    end.

%% Every message must be ASCII, short, and whole.
take(Port, Ms) ->
    case get({lines, Port}) of
        [Line | Lines] ->
            put({lines, Port}, Lines),
            Fine = byte_size(Line) < 4096 andalso
                lists:all(fun(C) -> C >= $\s andalso C < 127 end, binary_to_list(Line)),
            case engine_json:decode(Line) of
                {ok, Event} when Fine -> Event;
                _ -> error({not_a_message, Line})
            end;
        _ ->
            receive
                {Port, {data, Bytes}} ->
                    Pieces = binary:split(iolist_to_binary([part(Port), Bytes]), <<"\n">>,
                                          [global]),
                    put({part, Port}, lists:last(Pieces)),
                    put({lines, Port}, lists:droplast(Pieces)),
                    take(Port, Ms);
                {Port, {exit_status, Status}} ->
                    put({status, Port}, Status),
                    {exited, Status}
            after Ms -> timeout
            end
    end.

part(Port) ->
    case get({part, Port}) of
        undefined -> <<>>;
        Part -> Part
    end.

%% Everything that has arrived by now.
events(#{port := Port} = Client) ->
    case take(Port, 0) of
        #{} = Event -> [Event | events(Client)];
        _ -> []
    end.

no_event_yet(Client, What) ->
    [] = [Event || #{<<"what">> := Kind} = Event <- events(Client), Kind =:= What],
    ok.

state(Client, State) ->
    event(Client, <<"networkstate">>, fun(#{<<"state">> := S}) -> S =:= State end).

kill(#{pid := Pid} = Client) ->
    case engine_names:system() of
        windows -> 0 = engine_lab:system_program("taskkill", ["/F", "/PID", integer_to_list(Pid)]);
        other -> os:cmd("kill -9 " ++ integer_to_list(Pid))
    end,
    gone(Client).

%% Closes the engine's standard input.
close(#{port := Port} = Client) ->
    catch port_close(Port),
    engine_lab:wait(gone, fun() -> not running(Client) end).

%% Waits for the end of an engine that was not asked for it here.
gone(#{port := Port} = Client) ->
    case engine_names:system() of
        windows -> get({status, Port}) =/= undefined orelse exited(Port);
        other -> engine_lab:wait(gone, fun() -> not running(Client) end)
    end.

exited(Port) ->
    receive {Port, {exit_status, Status}} -> put({status, Port}, Status)
    after ?DEADLINE_MS -> error(still_running)
    end.

%% On Windows, whether it still has its data.
running(#{pid := Pid, lab := Lab}) ->
    case engine_names:system() of
        windows -> has_lock(state_dir(Lab));
        other ->
            case file:read_file("/proc/" ++ integer_to_list(Pid) ++ "/stat") of
                {ok, Stat} ->
                    [_, After] = binary:split(Stat, <<") ">>),
                    binary:first(After) =/= $Z;
                {error, _} -> false
            end
    end.

has_lock(StateDir) ->
    case engine_place:lock(StateDir, 0) of
        busy -> true;
        {ok, Lock} -> engine_place:unlock(Lock), false
    end.
