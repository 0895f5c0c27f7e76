-module(engine_accounts_tests).

-include_lib("eunit/include/eunit.hrl").

-define(TRIAL, <<"trial@orvel.example">>).
-define(TEAM, <<"team@orvel.example">>).

lab(Test) ->
    Lab = engine_lab:new(),
    try Test(Lab, engine_accounts:load(Lab)) after engine_lab:remove(Lab) end.

login_test_() ->
    {timeout, 30,
     fun() ->
             lab(fun(Lab, All) ->
                         [?assertEqual(Expected, engine_accounts:login(All, User, Password, Cid))
                          || {User, Password, Cid, Expected} <-
                                 [{?TRIAL, <<"trial">>, <<>>, {ok, 1001}},
                                  {?TRIAL, <<"trial">>, <<"1001">>, {ok, 1001}},
                                  {?TRIAL, <<"Trial">>, <<>>, refused},
                                  {?TRIAL, <<>>, <<>>, refused},
                                  {<<>>, <<>>, <<>>, refused},
                                  {?TRIAL, <<"trial">>, <<"2001">>, refused},
                                  {?TEAM, <<"team">>, <<>>, {choose, [2001, 2002]}},
                                  {?TEAM, <<"team">>, <<"2002">>, {ok, 2002}},
                                  {?TEAM, <<"wrong">>, <<"2002">>, refused}]],
                         ?assert(engine_accounts:is_owner(All, ?TEAM, 2002)),
                         ?assertNot(engine_accounts:is_owner(All, <<"guest@orvel.example">>, 2002)),
                         ?assertEqual(All, engine_accounts:load(Lab))
                 end)
     end}.

passwordsAreNotInTheFile_test() ->
    lab(fun(Lab, #{users := #{?TEAM := #{salt := S1}, ?TRIAL := #{salt := S2}}}) ->
                Text = engine_lab:read(engine_lab:in(Lab, "accounts.terms")),
                ?assertEqual(nomatch, binary:match(Text, <<"\"trial\"">>)),
                ?assertNotEqual(S1, S2)
        end).

signInIsRememberedForKnownAccountsOnly_test() ->
    lab(fun(Lab, All) ->
                ?assertEqual(none, engine_accounts:remembered(Lab, All)),
                ok = engine_accounts:remember(Lab, ?TEAM, 2001),
                ?assertEqual({ok, ?TEAM, 2001}, engine_accounts:remembered(Lab, All)),
                ok = engine_accounts:remember(Lab, ?TEAM, 1001),
                ?assertEqual(none, engine_accounts:remembered(Lab, All)),
                ok = engine_accounts:remember(Lab, ?TEAM, 2001),
                ok = engine_accounts:forget(Lab),
                ?assertEqual(none, engine_accounts:remembered(Lab, All))
        end).

damagedFileIsKeptAside_test() ->
    lab(fun(Lab, _) ->
                engine_lab:write(Lab, "accounts.terms", <<"{half">>),
                All = engine_accounts:load(Lab),
                ?assertEqual({ok, 1001}, engine_accounts:login(All, ?TRIAL, <<"trial">>, <<>>)),
                ?assertEqual(<<"{half">>,
                             engine_lab:read(engine_lab:in(Lab, "accounts.terms.damaged")))
        end).
