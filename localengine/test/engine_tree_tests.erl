-module(engine_tree_tests).

-include_lib("eunit/include/eunit.hrl").

base(Kind) ->
    #{kind => Kind, hash => <<1, 2, 255>>, local => {{1, 2, 3, 4}, 5}, cloud => {{6, 7, 8, 9}, 10}}.

apply_all(Deltas) -> lists:foldl(fun engine_tree:change/2, engine_tree:new(), Deltas).

deltas() ->
    [{bind, {<<"LT">>, <<"CT">>}},
     {put, <<"d">>, base(dir)},
     {put, <<"d/a b%\n\"ž"/utf8>>, base(file)},
     {put, <<"d/", 255>>, base(file)}].

sample() -> apply_all(deltas()).

%% All that a tree tells.
told(Tree) ->
    Below = engine_tree:below(<<>>, Tree),
    ?assertEqual(lists:sum([Size || {_, #{cloud := {{Size, _, _, _}, _}}} <- Below]), engine_tree:space(Tree)),
    {engine_tree:tokens(Tree), lists:sort([{Path, Base, engine_tree:id_path(Path, Tree)} || {Path, Base} <- Below])}.

with_file(Test) ->
    Lab = engine_lab:new(),
    try Test(engine_lab:in(Lab, <<"1.tree">>))
    after engine_lab:remove(Lab)
    end.

savedTreeReadsBack_test() ->
    with_file(fun(File) ->
                      Tree = sample(),
                      ok = engine_tree:save(File, deltas(), Tree),
                      ?assertEqual(told(Tree), told(engine_tree:load(File))),
                      Later = [{move, <<"d">>, <<"e">>}, {drop, <<"e/", 255>>}, {put, <<"f">>, base(file)}],
                      lists:foreach(fun(Delta) -> engine_tree:change(Delta, Tree) end, Later),
                      ok = engine_tree:save(File, Later, Tree),
                      ?assertEqual(told(Tree), told(engine_tree:load(File))),
                      Next = engine_tree:change({put, <<"new">>, base(file)}, engine_tree:load(File)),
                      [1, New] = engine_tree:id_path(<<"new">>, Next),
                      ?assertNot(lists:member(New, lists:append([Ids || {_, _, Ids} <- element(2, told(Tree))])))
              end).

savingCostsWhatWasChanged_test() ->
    with_file(fun(File) ->
                      Many = [{put, integer_to_binary(N), base(file)} || N <- lists:seq(1, 5000)],
                      Tree = apply_all(Many),
                      ok = engine_tree:save(File, Many, Tree),
                      Whole = filelib:file_size(File),
                      ok = engine_tree:save(File, [{drop, <<"1">>}], engine_tree:change({drop, <<"1">>}, Tree)),
                      ?assert(filelib:file_size(File) - Whole < 100)
              end).

fileDoesNotGrowWithoutEnd_test() ->
    with_file(fun(File) ->
                      Tree = sample(),
                      Delta = {put, <<"d">>, (base(dir))#{hash => crypto:strong_rand_bytes(100000)}},
                      [ok = engine_tree:save(File, [Delta], engine_tree:change(Delta, Tree)) || _ <- lists:seq(1, 30)],
                      ?assert(filelib:file_size(File) < 2000000),
                      ?assertEqual(told(Tree), told(engine_tree:load(File)))
              end).

%% Cut off anywhere, it holds what was saved before; and what comes then is kept.
everyCutFileHoldsWhatWasSavedBefore_test() ->
    with_file(fun(File) ->
                      Tree = engine_tree:new(),
                      Saved = [begin
                                   ok = engine_tree:save(File, [Delta], engine_tree:change(Delta, Tree)),
                                   {filelib:file_size(File), told(Tree)}
                               end || Delta <- deltas()],
                      {ok, Bytes} = file:read_file(File),
                      [begin
                           ok = file:write_file(File, binary:part(Bytes, 0, Size)),
                           Expected = case [Told || {At, Told} <- Saved, At =< Size] of
                                          [] -> told(engine_tree:new());
                                          Before -> lists:last(Before)
                                      end,
                           Cut = engine_tree:load(File),
                           ?assertEqual(Expected, told(Cut)),
                           Delta = {put, <<"later">>, base(file)},
                           ok = engine_tree:save(File, [Delta], engine_tree:change(Delta, Cut)),
                           ?assertEqual(told(Cut), told(engine_tree:load(File)))
                       end || Size <- lists:seq(0, byte_size(Bytes))]
              end).

damagedByteHidesOnlyWhatFollows_test() ->
    with_file(fun(File) ->
                      Tree = sample(),
                      ok = engine_tree:save(File, deltas(), Tree),
                      Before = told(Tree),
                      Size = filelib:file_size(File),
                      ok = engine_tree:save(File, [{drop, <<"d">>}], engine_tree:change({drop, <<"d">>}, Tree)),
                      {ok, <<Start:(Size + 8)/binary, Byte, Rest/binary>>} = file:read_file(File),
                      ok = file:write_file(File, [Start, Byte bxor 1, Rest]),
                      ?assertEqual(Before, told(engine_tree:load(File)))
              end).

earlier_version() ->
    <<"orvel-tree 1 9 LT CT\n"
      "3 file d/a%20b%25 0102FF 1 2 3 4 5 6 7 8 9 10\n"
      "2 dir d % 0 0 0 4 5 0 0 0 9 10\n"
      "4 - gone\n"
      "end 3\n">>.

treeOfAnEarlierVersionIsRead_test() ->
    with_file(fun(File) ->
                      ok = file:write_file(File, earlier_version()),
                      Tree = engine_tree:load(File),
                      ?assertEqual({<<"LT">>, <<"CT">>}, engine_tree:tokens(Tree)),
                      ?assertEqual([1, 2, 3], engine_tree:id_path(<<"d/a b%">>, Tree)),
                      ?assertEqual(base(file), engine_tree:get(<<"d/a b%">>, Tree)),
                      ?assertEqual([], engine_tree:id_path(<<"gone">>, Tree)),
                      ?assertEqual([1, 4], engine_tree:id_path(<<"gone">>, engine_tree:change({put, <<"gone">>, base(file)}, Tree))),
                      ok = engine_tree:save(File, [], Tree),
                      ?assertEqual(told(Tree), told(engine_tree:load(File)))
              end).

everyCutTextOfAnEarlierVersionIsForgottenAsAWhole_test() ->
    Text = earlier_version(),
    with_file(fun(File) ->
                      [begin
                           ok = file:write_file(File, binary:part(Text, 0, N)),
                           ?assertEqual(told(engine_tree:new()), told(engine_tree:load(File)))
                       end || N <- lists:seq(0, byte_size(Text) - 2)]
              end).

damagedTextIsForgotten_test() ->
    with_file(fun(File) ->
                      [begin
                           ok = file:write_file(File, Text),
                           ?assertEqual(told(engine_tree:new()), told(engine_tree:load(File)))
                       end || Text <- [<<"hello">>, <<"orvel-tree 1 2 % %\nx file a b 1\nend 1\n">>]]
              end).

idsFollowTheRename_test() ->
    Tree = sample(),
    Before = engine_tree:id_path(<<"d/", 255>>, Tree),
    [1, _, _] = Before,
    Moved = engine_tree:change({move, <<"d">>, <<"e">>}, Tree),
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
    ?assertEqual(told(sample()), told(engine_tree:change({bind, {<<"LT">>, <<"CT">>}}, sample()))).

missingFileIsAnEmptyTree_test() ->
    ?assertEqual(told(engine_tree:new()), told(engine_tree:load(<<"/nonexistent/1.tree">>))).
