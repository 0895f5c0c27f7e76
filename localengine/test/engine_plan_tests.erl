%% The decisions, as a table: what the tree remembers, what is seen on each
%% side, and what is to be done.
-module(engine_plan_tests).

-include_lib("eunit/include/eunit.hrl").

-define(SEEN, 1000).

%% Versions of a file: an old one of size 1, changed ones of other sizes.
file(Version) -> {file, {Version, 100, 100, 11}}.
%% The same size, but something about it is different.
touched(Version) -> {file, {Version, 200, 200, 11}}.
dir() -> {dir, {0, 0, 0, 22}}.

base(Kind) ->
    {_, Sig} = case Kind of file -> file(1); dir -> dir() end,
    #{kind => Kind, hash => <<"old">>, local => {Sig, ?SEEN}, cloud => {Sig, ?SEEN}}.

plan(Nodes, Local, Cloud) -> plan(Nodes, Local, Cloud, #{}).

plan(Nodes, Local, Cloud, Hashes) ->
    engine_plan:plan(maps:from_list(Nodes), {maps:from_list(Local), []},
                     {maps:from_list(Cloud), []}, Hashes).

one(Base, Local, Cloud, Hashes) ->
    Path = <<"p">>,
    plan([{Path, B} || B <- [Base], B =/= none], [{Path, L} || L <- [Local], L =/= absent],
         [{Path, C} || C <- [Cloud], C =/= absent],
         maps:from_list([{{Side, Path}, {Hash, ?SEEN}} || {Side, Hash} <- maps:to_list(Hashes)])).

table_test_() ->
    P = <<"p">>,
    F = base(file),
    D = base(dir),
    [{Name, ?_assertEqual(Expected, one(Base, Local, Cloud, Hashes))}
     || {Name, Base, Local, Cloud, Hashes, Expected} <-
            [{"nothing changed", F, file(1), file(1), #{}, []},
             {"new file here", none, file(1), absent, #{}, [{copy, cloud, P}]},
             {"new file there", none, absent, file(1), #{}, [{copy, local, P}]},
             {"changed here", F, file(2), file(1), #{}, [{copy, cloud, P}]},
             {"changed there", F, file(1), file(2), #{}, [{copy, local, P}]},
             {"deleted here", F, absent, file(1), #{}, [{delete, cloud, P}]},
             {"deleted there", F, file(1), absent, #{}, [{delete, local, P}]},
             {"deleted here, changed there", F, absent, file(2), #{}, [{copy, local, P}]},
             {"deleted there, changed here", F, file(2), absent, #{}, [{copy, cloud, P}]},
             {"deleted on both", F, absent, absent, #{}, [{forget, P}]},
             {"changed on both, differently", F, file(2), file(3), #{}, [{aside, local, P}]},
             {"changed on both, contents differ", F, file(2), file(2),
              #{local => <<"a">>, cloud => <<"b">>}, [{aside, local, P}]},
             {"changed on both alike", F, file(2), file(2),
              #{local => <<"a">>, cloud => <<"a">>}, [{adopt, P}]},
             {"new on both alike", none, file(2), touched(2),
              #{local => <<"a">>, cloud => <<"a">>}, [{adopt, P}]},
             {"new on both, sizes differ", none, file(2), file(3), #{}, [{aside, local, P}]},
             {"touched here", F, touched(1), file(1), #{local => <<"old">>}, [{adopt, P}]},
             {"same size, new content", F, touched(1), file(1), #{local => <<"new">>},
              [{copy, cloud, P}]},
             {"touched here, deleted there", F, touched(1), absent, #{local => <<"old">>},
              [{delete, local, P}]},
             {"in doubt and not read", F, touched(1), absent, #{}, []},
             {"new directory", none, dir(), absent, #{}, [{mkdir, cloud, P}]},
             {"directories on both", none, dir(), dir(), #{}, [{adopt, P}]},
             {"directory deleted", D, absent, dir(), #{}, [{rmdir, cloud, P}]},
             {"directory unchanged", D, dir(), dir(), #{}, []},
             {"file became directory", F, dir(), file(1), #{}, [{delete, cloud, P}]},
             {"file became directory, changed there", F, dir(), file(2), #{},
              [{aside, cloud, P}]},
             {"directory became file", D, file(1), dir(), #{}, [{rmdir, cloud, P}]},
             {"file meets directory", none, file(1), dir(), #{}, [{aside, local, P}]},
             {"link here, file there", F, other, file(1), #{}, []},
             {"link there, new file here", none, file(1), other, #{}, []}]].

fileSeenInTheSecondOfItsChangeIsInDoubt_test() ->
    Fresh = {file, {1, ?SEEN, ?SEEN, 11}},
    {_, Sig} = Fresh,
    Base = (base(file))#{local := {Sig, ?SEEN}},
    View = fun(Entry) -> {#{<<"p">> => Entry}, []} end,
    ?assertEqual([{local, <<"p">>}],
                 engine_plan:doubts(#{<<"p">> => Base}, View(Fresh), View(file(1)))),
    ?assertEqual([], engine_plan:doubts(#{<<"p">> => Base#{local := {Sig, ?SEEN + 2}}},
                                        View(Fresh), View(file(1)))).

bothContentsAreReadOnlyWhenSizesAgree_test() ->
    View = fun(Entry) -> {#{<<"p">> => Entry}, []} end,
    ?assertEqual([{local, <<"p">>}, {cloud, <<"p">>}],
                 engine_plan:doubts(#{}, View(file(2)), View(file(2)))),
    ?assertEqual([], engine_plan:doubts(#{}, View(file(2)), View(file(3)))).

deletedDirectoryStaysForWhatChangedInIt_test() ->
    Nodes = [{<<"d">>, base(dir)}, {<<"d/e">>, base(dir)}, {<<"d/e/new">>, base(file)},
             {<<"d/f">>, base(file)}, {<<"d/x">>, base(dir)}],
    ?assertEqual([{delete, cloud, <<"d/f">>}, {rmdir, cloud, <<"d/x">>},
                  {mkdir, local, <<"d">>}, {mkdir, local, <<"d/e">>},
                  {copy, local, <<"d/e/new">>}],
                 plan(Nodes, [], [{<<"d">>, dir()}, {<<"d/e">>, dir()},
                                  {<<"d/e/new">>, file(5)}, {<<"d/f">>, file(1)},
                                  {<<"d/x">>, dir()}])).

deletedTreeGoesFromTheInside_test() ->
    Nodes = [{<<"d">>, base(dir)}, {<<"d/e">>, base(dir)}, {<<"d/e/f">>, base(file)}],
    ?assertEqual([{delete, cloud, <<"d/e/f">>}, {rmdir, cloud, <<"d/e">>}, {rmdir, cloud, <<"d">>}],
                 plan(Nodes, [], [{<<"d">>, dir()}, {<<"d/e">>, dir()}, {<<"d/e/f">>, file(1)}])).

nothingIsConcludedBelowAnUnknownPlace_test_() ->
    Nodes = #{<<"d">> => base(dir), <<"d/f">> => base(file), <<"g">> => base(file)},
    Cloud = {#{<<"d">> => dir(), <<"d/f">> => file(1), <<"g">> => file(1)}, []},
    [?_assertEqual(Expected, engine_plan:plan(Nodes, {Local, Unknown}, Cloud, #{}))
     || {Local, Unknown, Expected} <-
            [{#{<<"d">> => dir()}, [<<"d">>], [{delete, cloud, <<"g">>}]},
             {#{}, [<<>>], []},
             {#{}, [<<"d">>, <<"g">>], []}]].

directoryWithUnreadContentIsNotRemoved_test() ->
    Nodes = #{<<"d">> => base(dir), <<"d/f">> => base(file)},
    Actions = engine_plan:plan(Nodes, {#{}, []}, {#{<<"d">> => dir(), <<"d/f">> => touched(1)}, []},
                               #{{cloud, <<"d/f">>} => error}),
    ?assertEqual([{mkdir, local, <<"d">>}], Actions).

moves(Nodes, Local, Cloud) ->
    engine_plan:moves(maps:from_list(Nodes), {maps:from_list(Local), []},
                      {maps:from_list(Cloud), []}).

renameIsSeenByTheFileItself_test() ->
    Nodes = [{<<"a">>, base(file)}],
    ?assertEqual([{move, cloud, <<"a">>, <<"b">>}],
                 moves(Nodes, [{<<"b">>, file(1)}], [{<<"a">>, file(1)}])),
    ?assertEqual([{move, local, <<"a">>, <<"b">>}],
                 moves(Nodes, [{<<"a">>, file(1)}], [{<<"b">>, file(1)}])).

renameOfWhatTheOtherSideChangedIsNone_test() ->
    ?assertEqual([], moves([{<<"a">>, base(file)}], [{<<"b">>, file(1)}], [{<<"a">>, file(2)}])).

renameOntoATakenNameIsNone_test() ->
    ?assertEqual([], moves([{<<"a">>, base(file)}], [{<<"b">>, file(1)}],
                           [{<<"a">>, file(1)}, {<<"b">>, file(3)}])).

renamedDirectoryIsOneMoveAndNewParentsAreMade_test() ->
    Nodes = [{<<"d">>, base(dir)}, {<<"d/f">>, base(file)}],
    New = {dir, {0, 0, 0, 33}},
    ?assertEqual([{mkdir, cloud, <<"n">>}, {move, cloud, <<"d">>, <<"n/d">>}],
                 moves(Nodes, [{<<"n">>, New}, {<<"n/d">>, dir()}, {<<"n/d/f">>, file(1)}],
                       [{<<"d">>, dir()}, {<<"d/f">>, file(1)}])).

renamesWaitWhileAPlaceIsUnknown_test() ->
    ?assertEqual([], engine_plan:moves(#{<<"a">> => base(file)}, {#{<<"b">> => file(1)}, [<<"c">>]},
                                       {#{<<"a">> => file(1)}, []})).
