-module(engine_names_tests).

-include_lib("eunit/include/eunit.hrl").

windowsRefusesSomeNames_test_() ->
    [{Name, ?_assertEqual(Reason, engine_names:refusal(Name, windows))}
     || {Name, Reason} <- [{<<"aux.txt">>, reserved}, {<<"CON">>, reserved}, {<<"com1.tar.gz">>, reserved},
                           {<<"nul .txt">>, reserved}, {<<"LPT\x{B9}"/utf8>>, reserved}, {<<"Conout$">>, reserved},
                           {<<"end.">>, ending}, {<<"end ">>, ending},
                           {<<"10:15">>, character}, {<<"a\\b">>, character}, {<<"what?">>, character},
                           {<<"line\nbreak">>, character}, {<<255, "a">>, no_text},
                           {binary:copy(<<"a">>, 256), length},
                           {binary:copy(<<16#1F602/utf8>>, 128), length}]].

windowsHoldsTheOthers_test_() ->
    [?_assertEqual(none, engine_names:refusal(Name, windows))
     || Name <- [<<"auxiliary">>, <<"COM10">>, <<"a.aux">>, <<".hidden">>, <<" begin">>,
                 <<"\x{10D} \x{1F602}"/utf8>>, binary:copy(<<"a">>, 255), binary:copy(<<"\x{10D}"/utf8>>, 255)]].

otherSystemsHoldAll_test() ->
    ?assertEqual(none, engine_names:refusal(<<"aux.">>, other)).

ownFilesAreDirectlyInTheRoot_test() ->
    ?assert(engine_names:is_own(<<".orvel.cache">>)),
    ?assert(engine_names:is_own(<<"Desktop.ini">>)),
    ?assertNot(engine_names:is_own(<<"a/desktop.ini">>)),
    ?assertNot(engine_names:is_own(<<"desktop.ini.txt">>)).

whatIsRefusedIsMarkedOnItsSide_test() ->
    File = {file, {1, 2, 3, 4}},
    Local = {#{<<"a">> => File}, []},
    Cloud = {#{<<"a">> => File, <<"d">> => {dir, {0, 0, 0, 5}}, <<"d/aux">> => File}, [<<"u">>]},
    ?assertMatch({Local, {#{<<"a">> := File, <<"d/aux">> := other}, [<<"u">>]}, [{<<"d/aux">>, reserved}]},
                 engine_names:refused(windows, Local, Cloud)),
    ?assertEqual({Local, Cloud, []}, engine_names:refused(other, Local, Cloud)).

ofNamesThatDifferInCaseTheKnownOneIsKept_test() ->
    File = {file, {1, 2, 3, 4}},
    Local = {#{<<"x/READ">> => File, <<"y/READ">> => File}, []},
    Cloud = {#{<<"x/Read">> => File, <<"x/\x{10D}"/utf8>> => File, <<"x/\x{10C}"/utf8>> => File}, []},
    {L, C, Held} = engine_names:clashing(windows, #{<<"x/Read">> => base}, Local, Cloud),
    ?assertEqual([{<<"x/READ">>, {case_of, <<"Read">>}},
                  {<<"x/\x{10D}"/utf8>>, {case_of, <<"\x{10C}"/utf8>>}}], lists:sort(Held)),
    ?assertMatch({#{<<"x/READ">> := other, <<"y/READ">> := File}, []}, L),
    ?assertMatch({#{<<"x/Read">> := File, <<"x/\x{10D}"/utf8>> := other, <<"x/\x{10C}"/utf8>> := File}, []}, C),
    ?assertEqual({Local, Cloud, []}, engine_names:clashing(other, #{}, Local, Cloud)).
