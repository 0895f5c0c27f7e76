%% The engine as the client sees it: a process, its streams and its files.
-module(engine_endtoend_tests).

-include_lib("eunit/include/eunit.hrl").

-import(engine_client, [send/2, event/2, state/2, login/3, login/4, changed/2]).
-import(engine_lab, [in/2, write/2, write/3, read/1, tree/1, wait/2]).

-define(TRIAL, <<"trial@orvel.example">>).
-define(TEAM, <<"team@orvel.example">>).
-define(GUEST, <<"guest@orvel.example">>).

all_test_() ->
    {inparallel, 3,
     [{atom_to_list(Name), {timeout, 60, fun() -> in_lab(Test) end}}
      || {Name, Test} <-
             [{signInMakesTheFolderAndTellsWhere, fun sign_in/1},
              {wrongPasswordStaysSignedOut, fun wrong_password/1},
              {severalAccountsAreOfferedAndKeptApart, fun several_accounts/1},
              {changesGoBothWays, fun both_ways/1},
              {renamedFolderKeepsItsIdOverARestart, fun rename/1},
              {conflictKeepsBothVersions, fun conflict/1},
              {killInTheMiddleOfACopyLosesNothing, fun kill_in_copy/1},
              {vanishedCloudIsOffline, fun cloud_vanishes/1},
              {vanishedFolderIsOfflineAndNotMadeAgain, fun root_vanishes/1},
              {movedFolderIsTakenOverAsItIs, fun root_moved/1},
              {restoreBuildsTheFolderAnew, fun restore/1},
              {signInIsRememberedUntilSignOut, fun remembered/1},
              {quotaIsNotOverrun, fun quota/1},
              {syncIsPausedAndResumed, fun pause/1},
              {sharingAnswersWithEachCode, fun sharing/1},
              {portCheckTellsWhetherThePortIsFree, fun port_check/1},
              {noiseOnTheInputIsPassedOver, fun noise/1},
              {fiveThousandPathsInOneMessage, fun many_paths/1},
              {secondEngineOnTheSameStateAsksTheClientToExit, fun second_engine/1},
              {plainStartWithoutLauncherWorks, fun plain_start/1}]]}.

in_lab(Test) ->
    Lab = engine_lab:new(),
    try
        engine_client:install(Lab),
        Test(Lab)
    after engine_lab:remove(Lab)
    end.

%% Starts, configures and signs in.
signed_in(Lab) -> signed_in(Lab, []).

signed_in(Lab, Environment) ->
    Client = engine_client:start(Lab, Environment),
    engine_client:config(Client),
    state(Client, <<"logout">>),
    login(Client, ?TRIAL, <<"trial">>),
    #{<<"uid">> := 1001} = state(Client, <<"ok">>),
    Client.

root(Lab) -> engine_client:root(Lab).
cloud(Lab) -> cloud(Lab, "1001").
cloud(Lab, Uid) -> in(Lab, "state/cloud/" ++ Uid).
state_file(Lab, Name) -> in(Lab, "state/" ++ Name).

remembered(Lab, Path) ->
    wait({remembered, Path}, fun() ->
        engine_tree:get(Path, engine_tree:load(state_file(Lab, "1001.tree"))) =/= none
    end).

in_cloud(Lab, Name, Content) ->
    wait({in_cloud, Name}, fun() -> read(in(cloud(Lab), Name)) =:= Content end).

write_new(Client, Root, Name, Content) ->
    write(Root, Name, Content),
    changed(Client, [Root]).

sign_in(Lab) ->
    Client = engine_client:start(Lab),
    send(Client, #{<<"cmd">> => <<"logout">>}),
    engine_client:config(Client, #{<<"homepath">> => in(Lab, <<"home/dömä"/utf8>>),
                                   <<"homefolder">> => <<"Moja mapa č"/utf8>>}),
    #{<<"uid">> := 0} = state(Client, <<"logout">>),
    login(Client, ?TRIAL, <<"trial">>),
    #{<<"uid">> := 1001} = event(Client, <<"networkstate">>),
    #{} = event(Client, <<"rootschanged">>),
    Root = in(Lab, <<"home/dömä/Moja mapa č"/utf8>>),
    ?assert(filelib:is_dir(in(Root, ".orvel.cache"))),
    Text = read(state_file(Lab, "1001.json")),
    ?assertEqual([], [C || <<C>> <= Text, C > 126]),
    ?assertEqual({ok, [#{<<"path">> => in(Lab, <<"home/dömä"/utf8>>),
                         <<"name">> => <<"Moja mapa č"/utf8>>}]}, engine_json:decode(Text)),
    ?assertMatch(#{<<"space">> := 0, <<"quota">> := 5368709120, <<"package">> := <<"Trial">>},
                 event(Client, <<"spaceused">>)),
    state(Client, <<"ok">>),
    engine_lab:unless_windows("it has no modes", fun() ->
        [?assertMatch({ok, 8#600}, mode(state_file(Lab, Name)))
         || Name <- ["accounts.terms", "signin.terms"]]
    end),
    engine_client:close(Client).

mode(Path) ->
    {ok, Info} = file:read_file_info(Path),
    {ok, element(8, Info) band 8#777}.

wrong_password(Lab) ->
    Client = engine_client:start(Lab),
    engine_client:config(Client),
    state(Client, <<"logout">>),
    login(Client, ?TRIAL, <<"wrong">>),
    ?assertMatch(#{<<"state">> := <<"logout">>, <<"uid">> := 0}, event(Client, <<"networkstate">>)),
    login(Client, <<"nobody@orvel.example">>, <<"trial">>),
    ?assertMatch(#{<<"state">> := <<"logout">>, <<"uid">> := 0}, event(Client, <<"networkstate">>)),
    engine_client:close(Client).

several_accounts(Lab) ->
    Client = engine_client:start(Lab),
    engine_client:config(Client),
    state(Client, <<"logout">>),
    login(Client, ?TEAM, <<"team">>),
    ?assertMatch(#{<<"ids">> := [<<"2001">>, <<"2002">>]}, event(Client, <<"loginids">>)),
    login(Client, ?TEAM, <<"team">>, <<"1001">>),
    ?assertMatch(#{<<"uid">> := 0}, state(Client, <<"logout">>)),
    login(Client, ?TEAM, <<"team">>, <<"2002">>),
    ?assertMatch(#{<<"uid">> := 2002}, state(Client, <<"ok">>)),
    write_new(Client, root(Lab), "second", <<"2">>),
    wait(second, fun() -> tree(cloud(Lab, "2002")) =:= #{<<"second">> => <<"2">>} end),
    engine_client:logout(Client),
    state(Client, <<"logout">>),
    login(Client, ?TEAM, <<"team">>, <<"2001">>),
    ?assertMatch(#{<<"uid">> := 2001}, state(Client, <<"ok">>)),
    Other = <<(root(Lab))/binary, " 2">>,
    write_new(Client, Other, "first", <<"1">>),
    wait(first, fun() -> tree(cloud(Lab, "2001")) =:= #{<<"first">> => <<"1">>} end),
    ?assertEqual(#{<<"second">> => <<"2">>}, tree(root(Lab))),
    engine_client:close(Client).

both_ways(Lab) ->
    Client = signed_in(Lab),
    Root = root(Lab),
    Dir = case engine_names:system() of
              windows -> <<"čšž 日本"/utf8>>;
              other -> <<"čšž \"q\"\n日本"/utf8>>
          end,
    Odd = <<Dir/binary, "/😀.txt"/utf8>>,
    write(Root, Odd, <<"up">>),
    ok = file:make_dir(in(Root, "empty")),
    write(cloud(Lab), <<"down/ž"/utf8>>, <<"down">>),
    changed(Client, [Root]),
    Expected = #{Dir => dir, Odd => <<"up">>, <<"empty">> => dir,
                 <<"down">> => dir, <<"down/ž"/utf8>> => <<"down">>},
    wait(both, fun() -> tree(Root) =:= Expected andalso tree(cloud(Lab)) =:= Expected end),
    event(Client, <<"networkstate">>,
          <<"transferring">>),
    event(Client, <<"spaceused">>, 6),
    write(Root, Odd, <<"ag">>),
    ok = file:del_dir(in(Root, "empty")),
    changed(Client, [filename:dirname(in(Root, Odd)), in(Root, "empty")]),
    in_cloud(Lab, Odd, <<"ag">>),
    wait(gone, fun() -> not engine_lab:exists(in(cloud(Lab), "empty")) end),
    ok = file:del_dir_r(in(cloud(Lab), "down")),
    wait(gone, fun() -> not engine_lab:exists(in(Root, "down")) end),
    engine_client:close(Client).

event(Client, <<"networkstate">> = What, State) ->
    engine_client:event(Client, What, fun(#{<<"state">> := S}) -> S =:= State end);
event(Client, <<"spaceused">> = What, Space) ->
    engine_client:event(Client, What, fun(#{<<"space">> := S}) -> S =:= Space end).

query(Client, Path) ->
    send(Client, #{<<"cmd">> => <<"pathquery">>, <<"what">> => <<"revs">>, <<"path">> => Path}),
    #{<<"cmd">> := <<"revs">>, <<"idpath">> := Ids} = event(Client, <<"queryresult">>),
    Ids.

rename(Lab) ->
    Client = signed_in(Lab),
    Root = root(Lab),
    write_new(Client, Root, <<"old/sub/ž.txt"/utf8>>, <<"content">>),
    in_cloud(Lab, <<"old/sub/ž.txt"/utf8>>, <<"content">>),
    wait(known, fun() -> query(Client, in(Root, <<"old/sub/ž.txt"/utf8>>)) =/= [] end),
    [RootId, _, _, _] = Ids = query(Client, in(Root, <<"old/sub/ž.txt"/utf8>>)),
    ?assertEqual([RootId], query(Client, <<Root/binary, "/">>)),
    ?assertEqual([], query(Client, in(Root, "nothing"))),
    ?assertEqual([], query(Client, <<"/">>)),
    ok = file:rename(in(Root, "old"), in(Root, "new")),
    changed(Client, [Root]),
    in_cloud(Lab, <<"new/sub/ž.txt"/utf8>>, <<"content">>),
    wait(renamed, fun() -> query(Client, in(Root, <<"new/sub/ž.txt"/utf8>>)) =:= Ids end),
    ?assertEqual([], query(Client, in(Root, "old"))),
    remembered(Lab, <<"new/sub/ž.txt"/utf8>>),
    engine_client:close(Client),
    Again = engine_client:start(Lab),
    engine_client:config(Again),
    state(Again, <<"ok">>),
    ?assertEqual(Ids, query(Again, in(Root, <<"new/sub/ž.txt"/utf8>>))),
    engine_client:close(Again).

conflict(Lab) ->
    Client = signed_in(Lab),
    Root = root(Lab),
    write_new(Client, Root, "report.txt", <<"first">>),
    in_cloud(Lab, "report.txt", <<"first">>),
    engine_client:close(Client),
    write(Root, "report.txt", <<"mine">>),
    write(cloud(Lab), "report.txt", <<"their">>),
    Again = engine_client:start(Lab),
    engine_client:config(Again),
    wait(both, fun() -> T = tree(Root), T =:= tree(cloud(Lab)) andalso map_size(T) =:= 2 end),
    ?assertEqual([<<"mine">>, <<"their">>], lists:sort(maps:values(tree(Root)))),
    ?assertEqual(<<"their">>, read(in(Root, "report.txt"))),
    engine_client:close(Again).

kill_in_copy(Lab) ->
    Client = signed_in(Lab, [{"ORVEL_LOCAL_RATE", "2000000"}]),
    Root = root(Lab),
    Big = crypto:strong_rand_bytes(40000000),
    write(Root, "a small one", <<"small">>),
    write_new(Client, Root, "big", Big),
    #{<<"uploads">> := Uploads, <<"timerem">> := Seconds} =
        engine_client:event(Client, <<"networkstate">>,
                            fun(#{<<"bps">> := Bps}) -> Bps > 1000 end),
    ?assertEqual(1, Uploads),
    ?assert(Seconds > 2),
    Temps = fun() -> filelib:wildcard("*.part", binary_to_list(in(cloud(Lab), ".orvel.cache")))
            end,
    wait(temp, fun() -> Temps() =/= [] end),
    engine_client:kill(Client),
    ?assertEqual(#{<<"a small one">> => <<"small">>}, tree(cloud(Lab))),
    Again = engine_client:start(Lab),
    engine_client:config(Again),
    in_cloud(Lab, "big", Big),
    state(Again, <<"ok">>),
    ?assertEqual(tree(Root), tree(cloud(Lab))),
    ?assertEqual([], Temps()),
    engine_client:close(Again).

cloud_vanishes(Lab) ->
    Cloud = in(Lab, <<"oblak č"/utf8>>),
    Client = signed_in(Lab, [{"ORVEL_LOCAL_CLOUD", unicode:characters_to_list(Cloud)}]),
    Root = root(Lab),
    write_new(Client, Root, "d/f", <<"1">>),
    wait(up, fun() -> read(in(Cloud, "1001/d/f")) =:= <<"1">> end),
    ok = file:rename(Cloud, in(Lab, "away")),
    ?assertMatch(#{<<"uid">> := 1001}, state(Client, <<"offline">>)),
    write_new(Client, Root, "new", <<"2">>),
    ?assertNot(engine_lab:exists(Cloud)),
    ?assertEqual(#{<<"d">> => dir, <<"d/f">> => <<"1">>, <<"new">> => <<"2">>}, tree(Root)),
    ok = file:rename(in(Lab, "away"), Cloud),
    ?assertMatch(#{<<"uid">> := 1001}, state(Client, <<"ok">>)),
    wait(up, fun() -> tree(in(Cloud, "1001")) =:= tree(Root) end),
    engine_client:close(Client).

root_vanishes(Lab) ->
    Client = signed_in(Lab),
    Root = root(Lab),
    write_new(Client, Root, "d/f", <<"1">>),
    in_cloud(Lab, "d/f", <<"1">>),
    Before = tree(cloud(Lab)),
    %% The engine may lay a file into it meanwhile.
    wait(deleted, fun() -> file:del_dir_r(Root) =:= ok end),
    state(Client, <<"offline">>),
    engine_client:close(Client),
    Again = engine_client:start(Lab),
    engine_client:config(Again),
    ?assertMatch(#{<<"uid">> := 1001}, state(Again, <<"offline">>)),
    ?assertNot(engine_lab:exists(Root)),
    ?assertEqual(Before, tree(cloud(Lab))),
    ok = file:make_dir(Root),
    state(Again, <<"ok">>),
    ?assertEqual(Before, tree(Root)),
    ?assertEqual(Before, tree(cloud(Lab))),
    engine_client:close(Again).

root_moved(Lab) ->
    Client = signed_in(Lab),
    Root = root(Lab),
    write_new(Client, Root, "d/f", <<"1">>),
    in_cloud(Lab, "d/f", <<"1">>),
    remembered(Lab, <<"d/f">>),
    engine_client:close(Client),
    Before = engine_file:look(in(cloud(Lab), "d/f")),
    Moved = in(Lab, <<"elsewhere/Škatla"/utf8>>),
    ok = filelib:ensure_dir(Moved),
    ok = file:rename(Root, Moved),
    %% As the client writes it, but escaped.
    write(state_file(Lab, "1001.json"),
          engine_json:encode([#{<<"name">> => <<"Škatla"/utf8>>,
                                <<"path">> => in(Lab, "elsewhere")}])),
    Again = engine_client:start(Lab),
    engine_client:config(Again),
    event(Again, <<"rootschanged">>),
    state(Again, <<"ok">>),
    ?assertEqual(Before, engine_file:look(in(cloud(Lab), "d/f"))),
    ?assertEqual(#{<<"d">> => dir, <<"d/f">> => <<"1">>}, tree(Moved)),
    ?assertNot(engine_lab:exists(Root)),
    write_new(Again, Moved, "new", <<"2">>),
    in_cloud(Lab, "new", <<"2">>),
    engine_client:close(Again).

restore(Lab) ->
    Client = signed_in(Lab),
    Root = root(Lab),
    write_new(Client, Root, "d/f", <<"1">>),
    in_cloud(Lab, "d/f", <<"1">>),
    remembered(Lab, <<"d/f">>),
    engine_client:close(Client),
    ok = file:del_dir_r(Root),
    [ok = file:delete(state_file(Lab, Name)) || Name <- ["1001.json", "1001.tree"]],
    Again = engine_client:start(Lab),
    engine_client:config(Again),
    state(Again, <<"ok">>),
    ?assertEqual(#{<<"d">> => dir, <<"d/f">> => <<"1">>}, tree(Root)),
    ?assertEqual(tree(Root), tree(cloud(Lab))),
    engine_client:close(Again).

remembered(Lab) ->
    Client = signed_in(Lab),
    engine_client:kill(Client),
    Again = engine_client:start(Lab),
    engine_client:config(Again),
    ?assertMatch(#{<<"uid">> := 1001}, event(Again, <<"networkstate">>)),
    event(Again, <<"rootschanged">>),
    event(Again, <<"spaceused">>),
    engine_client:logout(Again),
    ?assertMatch(#{<<"uid">> := 0}, state(Again, <<"logout">>)),
    engine_client:kill(Again),
    Third = engine_client:start(Lab),
    engine_client:config(Third),
    ?assertMatch(#{<<"uid">> := 0, <<"state">> := <<"logout">>}, event(Third, <<"networkstate">>)),
    engine_client:close(Third).

quota(Lab) ->
    First = engine_client:start(Lab),
    engine_client:config(First),
    state(First, <<"logout">>),
    engine_client:close(First),
    {ok, [#{accounts := #{1001 := Account} = Accounts} = All]} =
        file:consult(state_file(Lab, "accounts.terms")),
    Small = All#{accounts := Accounts#{1001 := Account#{quota := 100}}},
    ok = engine_file:write_term(state_file(Lab, "accounts.terms"), Small),
    Client = signed_in(Lab),
    write(root(Lab), "a-large", binary:copy(<<"x">>, 101)),
    write_new(Client, root(Lab), "b-small", binary:copy(<<"x">>, 60)),
    in_cloud(Lab, "b-small", binary:copy(<<"x">>, 60)),
    ?assertMatch(#{<<"quota">> := 100}, event(Client, <<"spaceused">>, 60)),
    state(Client, <<"ok">>),
    ?assertEqual([<<"b-small">>], maps:keys(tree(cloud(Lab)))),
    engine_client:close(Client).

pause(Lab) ->
    Client = signed_in(Lab),
    send(Client, #{<<"cmd">> => <<"syncenabled">>, <<"val">> => false}),
    ?assertEqual([1], query(Client, root(Lab))),
    engine_client:events(Client),
    write_new(Client, root(Lab), "f", <<"1">>),
    write(cloud(Lab), "g", <<"2">>),
    %% Each answer proves that the messages before it were dealt with.
    [query(Client, root(Lab)) || _ <- lists:seq(1, 50)],
    ?assertEqual(#{<<"f">> => <<"1">>}, tree(root(Lab))),
    ?assertEqual(#{<<"g">> => <<"2">>}, tree(cloud(Lab))),
    send(Client, #{<<"cmd">> => <<"syncenabled">>, <<"val">> => true}),
    state(Client, <<"ok">>),
    ?assertEqual(#{<<"f">> => <<"1">>, <<"g">> => <<"2">>}, tree(root(Lab))),
    engine_client:close(Client).

sharing(Lab) ->
    Client = engine_client:start(Lab),
    engine_client:config(Client),
    state(Client, <<"logout">>),
    Share = fun(User, Path) ->
                    Id = erlang:unique_integer([positive]),
                    send(Client, #{<<"cmd">> => <<"sharefolder">>, <<"username">> => User,
                                   <<"path">> => Path, <<"msgid">> => Id}),
                    #{<<"msgid">> := Id, <<"success">> := Success, <<"msg">> := Code} =
                        event(Client, <<"sharefolderresult">>),
                    {Success, Code}
            end,
    Root = root(Lab),
    ?assertEqual({false, 3}, Share(?GUEST, Root)),
    login(Client, ?TEAM, <<"team">>, <<"2002">>),
    state(Client, <<"ok">>),
    [ok = filelib:ensure_path(in(Root, Name)) || Name <- ["a/b/c", "ab"]],
    write(Root, "file", <<>>),
    ?assertEqual({false, 0}, Share(?GUEST, in(Root, "missing"))),
    ?assertEqual({false, 0}, Share(?GUEST, in(Root, "file"))),
    ?assertEqual({false, 0}, Share(?GUEST, <<"/etc">>)),
    ?assertEqual({false, 4}, Share(<<"nobody@orvel.example">>, in(Root, "a/b"))),
    ?assertMatch({true, _}, Share(?GUEST, in(Root, "a/b"))),
    ?assertMatch({true, _}, Share(?TRIAL, in(Root, "a/b"))),
    ?assertMatch({true, _}, Share(?GUEST, in(Root, "ab"))),
    ?assertEqual({false, 2}, Share(?GUEST, in(Root, "a"))),
    ?assertEqual({false, 2}, Share(?GUEST, in(Root, "a/b/c"))),
    login(Client, ?GUEST, <<"guest">>),
    state(Client, <<"ok">>),
    ?assertEqual({false, 1}, Share(?TRIAL, in(Root, "a/b"))),
    engine_client:close(Client).

port_check(Lab) ->
    {ok, Taken} = gen_tcp:listen(0, []),
    {ok, Port} = inet:port(Taken),
    Client = engine_client:start(Lab),
    engine_client:config(Client, #{<<"port">> => Port}),
    state(Client, <<"logout">>),
    send(Client, #{<<"cmd">> => <<"checkport">>}),
    ?assertMatch(#{<<"portworks">> := false, <<"pin">> := [], <<"upnp">> := false},
                 event(Client, <<"state">>)),
    ok = gen_tcp:close(Taken),
    send(Client, #{<<"cmd">> => <<"resetupnp">>}),
    ?assertMatch(#{<<"portworks">> := true}, event(Client, <<"state">>)),
    engine_client:close(Client).

noise(Lab) ->
    Client = engine_client:start(Lab),
    [engine_client:raw(Client, Bytes)
     || Bytes <- ["hello\njson\njson{\njson{} {}\n", <<0, 255, 10>>,
                  ["json", binary:copy(<<"[">>, 1000000), "\n"],
                  "json[]\njson12\njson\"x\"\n",
                  "json{\"statedir\":7}\njson{\"statedir\":\"\"}\n",
                  "json{\"cmd\":\"login\",\"username\":\"x\",\"password\":\"y\"}\n"]],
    engine_client:config(Client),
    state(Client, <<"logout">>),
    [send(Client, Message)
     || Message <- [#{<<"cmd">> => <<"unknown">>}, #{<<"cmd">> => 5}, #{<<"cmd">> => <<"login">>},
                    #{<<"cmd">> => <<"login">>, <<"username">> => 1, <<"password">> => []},
                    #{<<"cmd">> => <<"pathschaned">>, <<"paths">> => <<"x">>},
                    #{<<"cmd">> => <<"pathquery">>}, #{<<"cmd">> => <<"sharefolder">>},
                    #{<<"cmd">> => <<"syncenabled">>, <<"val">> => 1}]],
    login(Client, ?TRIAL, <<"trial">>),
    state(Client, <<"ok">>),
    [send(Client, Message)
     || Message <- [#{<<"cmd">> => <<"pathschaned">>, <<"paths">> => [1, null, <<"/">>, <<>>]},
                    #{<<"cmd">> => <<"pathquery">>, <<"what">> => 1, <<"path">> => <<"x">>}]],
    ?assertEqual([], query(Client, <<>>)),
    ?assertEqual([], query(Client, in(root(Lab), "../../home"))),
    engine_client:close(Client).

many_paths(Lab) ->
    Client = signed_in(Lab),
    Root = root(Lab),
    Dirs = [in(Root, <<"dir-", (integer_to_binary(N))/binary, "-č"/utf8>>)
            || N <- lists:seq(1, 5000)],
    [ok = file:make_dir(Dir) || Dir <- lists:sublist(Dirs, 300)],
    write(lists:nth(300, Dirs), "f", <<"1">>),
    changed(Client, Dirs),
    wait(up, fun() -> map_size(tree(cloud(Lab))) =:= 301 end),
    engine_client:close(Client).

second_engine(Lab) ->
    First = engine_client:start(Lab),
    engine_client:config(First),
    state(First, <<"logout">>),
    Second = engine_client:start(Lab),
    engine_client:config(Second),
    #{} = event(Second, <<"exit">>),
    engine_client:gone(Second),
    %% A killed engine holds nothing back.
    engine_client:kill(First),
    Third = engine_client:start(Lab),
    engine_client:config(Third),
    state(Third, <<"logout">>),
    engine_client:close(Third).

plain_start(Lab) ->
    engine_lab:unless_windows("the launcher is the virtual machine", fun() -> started_plainly(Lab) end).

started_plainly(Lab) ->
    Port = open_port({spawn_executable, os:find_executable("erl")},
                     [{args, ["-noshell", "-pa", os:getenv("ORVEL_TEST_EBIN"),
                              "-eval", "rtsp:startplain(false)"]},
                      stream, binary, exit_status, stderr_to_stdout,
                      {env, [{"HOME", binary_to_list(in(Lab, "home"))}, {"LC_ALL", "C.UTF-8"}]}]),
    {os_pid, Pid} = erlang:port_info(Port, os_pid),
    Client = #{port => Port, pid => Pid, lab => Lab},
    engine_client:config(Client, #{<<"homefolder">> => <<"Moja mapa č"/utf8>>}),
    state(Client, <<"logout">>),
    login(Client, ?TRIAL, <<"trial">>),
    state(Client, <<"ok">>),
    write_new(Client, in(Lab, <<"home/Moja mapa č"/utf8>>), <<"ž"/utf8>>, <<"1">>),
    in_cloud(Lab, <<"ž"/utf8>>, <<"1">>),
    engine_client:close(Client).
