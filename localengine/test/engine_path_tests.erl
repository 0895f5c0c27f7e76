-module(engine_path_tests).

-include_lib("eunit/include/eunit.hrl").

ancestorsComeOutermostFirst_test() ->
    ?assertEqual([<<"a">>, <<"a/b">>], engine_path:ancestors(<<"a/b/c">>)),
    ?assertEqual([], engine_path:ancestors(<<"a">>)),
    ?assertEqual([], engine_path:ancestors(<<>>)).

belowMeansInsideAndNotAlike_test() ->
    ?assert(engine_path:is_below(<<"a/b">>, <<"a">>)),
    ?assert(engine_path:is_below(<<"a">>, <<>>)),
    ?assertNot(engine_path:is_below(<<"ab">>, <<"a">>)),
    ?assertNot(engine_path:is_below(<<"a">>, <<"a">>)),
    ?assertNot(engine_path:is_below(<<>>, <<>>)).

keysMoveWithTheirSubtree_test() ->
    ?assertEqual(#{<<"n/x">> => 1, <<"n/x/f">> => 2, <<"ab">> => 3},
                 engine_path:move_keys(<<"a">>, <<"n/x">>,
                                       #{<<"a">> => 1, <<"a/f">> => 2, <<"ab">> => 3})).

relativeKnowsInsideFromOutside_test_() ->
    Root = <<"/home/Moja mapa"/utf8>>,
    [?_assertEqual(Expected, engine_path:relative(Path, Root))
     || {Path, Expected} <- [{<<"/home/Moja mapa"/utf8>>, <<>>},
                             {<<"/home/Moja mapa//a/./b/"/utf8>>, <<"a/b">>},
                             {<<"/home/Moja mapa 2/a"/utf8>>, outside},
                             {<<"/home/Moja mapa/../x"/utf8>>, outside},
                             {<<"a">>, outside}, {<<>>, outside}]].

relativeOnWindowsKnowsBothSlashesAndNoCase_test_() ->
    Root = <<"C:/Users/Ana/\x{10C}olni"/utf8>>,
    [?_assertEqual(Expected, engine_path:relative(Path, Root, windows))
     || {Path, Expected} <- [{<<"c:\\users\\ANA\\\x{10D}olni\\A\\b"/utf8>>, <<"A/b">>},
                             {<<"C:/Users/Ana/\x{10C}olni"/utf8>>, <<>>},
                             {<<"D:/Users/Ana/\x{10C}olni/a"/utf8>>, outside},
                             {<<"C:/Users/Ana/\x{10C}olni/..\\x"/utf8>>, outside}]].

nameAndParentTakeApartAtSlashesOnly_test() ->
    ?assertEqual(<<"c:\\d">>, engine_path:name(<<"a/c:\\d">>)),
    ?assertEqual(<<"a/b">>, engine_path:parent(<<"a/b/c:\\d">>)),
    ?assertEqual(<<>>, engine_path:parent(<<"c:\\d">>)).

conflictNamesKeepDirectoryAndExtension_test() ->
    Time = {{2026, 11, 21}, {9, 5, 0}},
    ?assertEqual(<<"d.x/report (conflict 2026-11-21 09.05.00).txt">>,
                 engine_path:conflict_name(<<"d.x/report.txt">>, Time, 1)),
    ?assertEqual(<<".hidden (conflict 2026-11-21 09.05.00 2)">>,
                 engine_path:conflict_name(<<".hidden">>, Time, 2)),
    ?assertEqual(<<"a (conflict 2026-11-21 09.05.00) (conflict 2026-11-21 09.05.00)">>,
                 engine_path:conflict_name(engine_path:conflict_name(<<"a">>, Time, 1), Time, 1)).

longConflictNamesStillFit_test() ->
    Long = <<(binary:copy(<<"č"/utf8>>, 125))/binary, ".txt">>,
    Name = engine_path:conflict_name(Long, {{2026, 11, 21}, {9, 5, 0}}, 1),
    ?assert(byte_size(Name) =< 255),
    ?assertEqual(Name, unicode:characters_to_binary(Name)),
    ?assertEqual(<<".txt">>, filename:extension(Name)).
