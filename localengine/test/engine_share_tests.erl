-module(engine_share_tests).

-include_lib("eunit/include/eunit.hrl").

facts() -> #{owner => true, user => true, folder => fun(_) -> true end}.

share(Shares, Folder, Facts) ->
    engine_share:share(Shares, 1, Folder, <<"b@x">>, maps:merge(facts(), Facts)).

theFirstRuleThatFailsIsTold_test() ->
    ?assertEqual({error, 0}, share(#{}, outside, #{owner => false})),
    ?assertEqual({error, 0}, share(#{}, <<"a">>, #{folder => fun(_) -> false end, owner => false})),
    ?assertEqual({error, 1}, share(#{}, <<"a">>, #{owner => false, user => false})),
    ?assertEqual({error, 4}, share(#{{1, <<"a/b">>} => []}, <<"a">>, #{user => false})).

aboveAndBelowAreRefused_test() ->
    Shares = #{{1, <<"a/b">>} => [<<"c@x">>]},
    ?assertEqual({error, 2}, share(Shares, <<"a">>, #{})),
    ?assertEqual({error, 2}, share(Shares, <<>>, #{})),
    ?assertEqual({error, 2}, share(Shares, <<"a/b/c">>, #{})),
    ?assertMatch({ok, _}, share(Shares, <<"a/bc">>, #{})).

theSameFolderCanBeSharedWithMore_test() ->
    Shares = #{{1, <<"a">>} => [<<"c@x">>]},
    {ok, More} = share(Shares, <<"a">>, #{}),
    ?assertEqual(#{{1, <<"a">>} => [<<"b@x">>, <<"c@x">>]}, More),
    ?assertEqual({ok, More}, share(More, <<"a">>, #{})).

otherAccountsAndGoneFoldersDoNotCount_test() ->
    Here = fun(Folder) -> Folder =/= <<"a/gone">> end,
    Shares = #{{2, <<"a">>} => [], {1, <<"a/gone">>} => []},
    ?assertMatch({ok, _}, share(Shares, <<"a">>, #{folder => Here})).

sharesAreRemembered_test() ->
    Lab = engine_lab:new(),
    try
        ?assertEqual(#{}, engine_share:load(Lab)),
        Shares = #{{1, <<"ž"/utf8>>} => [<<"b@x">>]},
        ok = engine_share:save(Lab, Shares),
        ?assertEqual(Shares, engine_share:load(Lab))
    after engine_lab:remove(Lab)
    end.
