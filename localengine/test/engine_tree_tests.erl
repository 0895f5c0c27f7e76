-module(engine_tree_tests).

-include_lib("eunit/include/eunit.hrl").

base(Kind) ->
    #{kind => Kind, hash => <<1, 2, 255>>, local => {{1, 2, 3, 4}, 5}, cloud => {{6, 7, 8, 9}, 10}}.

apply_all(Deltas) -> lists:foldl(fun engine_tree:change/2, engine_tree:new(), Deltas).

sample() ->
    apply_all([{bind, {<<"LT">>, <<"CT">>}},
               {put, <<"d">>, base(dir)},
               {put, <<"d/a b%\n\"ž"/utf8>>, base(file)},
               {put, <<"d/", 255>>, base(file)}]).

textReadsBack_test() ->
    Tree = sample(),
    ?assertEqual(Tree, engine_tree:from_text(iolist_to_binary(engine_tree:to_text(Tree)))).

everyCutTextIsForgottenAsAWhole_test() ->
    Text = iolist_to_binary(engine_tree:to_text(sample())),
    [?assertEqual(engine_tree:new(), engine_tree:from_text(binary:part(Text, 0, N)))
     || N <- lists:seq(0, byte_size(Text) - 2)].

damagedTextIsForgotten_test() ->
    ?assertEqual(engine_tree:new(), engine_tree:from_text(<<"hello">>)),
    ?assertEqual(engine_tree:new(),
                 engine_tree:from_text(<<"orvel-tree 1 2 % %\nx file a b 1\nend 1\n">>)).

idsFollowTheRename_test() ->
    Before = engine_tree:id_path(<<"d/", 255>>, sample()),
    [1, _, _] = Before,
    Moved = engine_tree:change({move, <<"d">>, <<"e">>}, sample()),
    ?assertEqual(Before, engine_tree:id_path(<<"e/", 255>>, Moved)),
    ?assertEqual([], engine_tree:id_path(<<"d">>, Moved)).

unknownPathHasNoIds_test() ->
    ?assertEqual([], engine_tree:id_path(<<"d/none">>, sample())),
    ?assertEqual([1], engine_tree:id_path(<<>>, sample())).

idsAreNeverUsedTwice_test() ->
    [1, Old] = engine_tree:id_path(<<"d">>, sample()),
    Again = engine_tree:change({put, <<"d">>, base(dir)},
                               engine_tree:change({drop, <<"d">>}, sample())),
    ?assertNotEqual([1, Old], engine_tree:id_path(<<"d">>, Again)).

otherRootsMakeTheContentUnknownButKeepTheIds_test() ->
    Tree = engine_tree:change({bind, {<<"LT">>, <<"other">>}}, sample()),
    ?assertEqual(none, engine_tree:get(<<"d">>, Tree)),
    ?assertEqual([], engine_tree:id_path(<<"d">>, Tree)),
    Known = engine_tree:change({put, <<"d">>, base(dir)}, Tree),
    ?assertEqual(engine_tree:id_path(<<"d">>, sample()), engine_tree:id_path(<<"d">>, Known)),
    ?assertEqual(sample(), engine_tree:change({bind, {<<"LT">>, <<"CT">>}}, sample())).

missingFileIsAnEmptyTree_test() ->
    ?assertEqual(engine_tree:new(), engine_tree:load(<<"/nonexistent/1.tree">>)).
