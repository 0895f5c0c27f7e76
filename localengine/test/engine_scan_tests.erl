-module(engine_scan_tests).

-include_lib("eunit/include/eunit.hrl").

-import(engine_lab, [in/2, write/3]).

lab(Test) ->
    Lab = engine_lab:new(),
    try Test(Lab) after engine_lab:remove(Lab) end.

fullSkipsOnlyTheRootsCacheDirectory_test() ->
    lab(fun(Root) ->
                write(Root, ".orvel.cache/x", <<>>),
                write(Root, "d/.orvel.cache/y", <<"123">>),
                {Entries, []} = View = engine_scan:full(Root),
                ?assertEqual([<<"d">>, <<"d/.orvel.cache">>, <<"d/.orvel.cache/y">>], maps:keys(Entries)),
                ?assertEqual(3, engine_scan:size(View))
        end).

linksAreSeenAndNotFollowed_test() ->
    engine_lab:unless_windows("Wine makes none", fun() ->
        lab(fun(Root) ->
                    write(Root, "d/f", <<>>),
                    ok = file:make_symlink("d", in(Root, "link")),
                    {Entries, []} = engine_scan:full(Root),
                    ?assertEqual([<<"d">>, <<"d/f">>, <<"link">>], maps:keys(Entries)),
                    ?assertEqual(other, maps:get(<<"link">>, Entries))
            end)
    end).

missingRootIsUnknownAsAWhole_test() ->
    lab(fun(Root) -> ?assertEqual({#{}, [<<>>]}, engine_scan:full(in(Root, "none"))) end).

%% Whatever happened, looking again at the changed directories gives what a
%% full look gives.
partialEqualsFull_test_() ->
    [{Name,
      fun() ->
              lab(fun(Root) ->
                          write(Root, "a/b/f", <<"1">>),
                          write(Root, "a/g", <<"2">>),
                          write(Root, "h", <<"3">>),
                          Before = engine_scan:full(Root),
                          Change(Root),
                          ?assertEqual(engine_scan:full(Root),
                                       engine_scan:partial(Root, Dirs, Before))
                  end)
      end}
     || {Name, Change, Dirs} <-
            [{"new file", fun(R) -> write(R, "a/new", <<>>) end, [<<"a">>]},
             {"changed file", fun(R) -> write(R, "a/b/f", <<"12">>) end, [<<"a/b">>]},
             {"new subtree", fun(R) -> write(R, "x/y/z", <<>>) end, [<<>>]},
             {"deep place in a new subtree", fun(R) -> write(R, "x/y/z", <<>>) end, [<<"x/y">>]},
             {"subtree deleted", fun(R) -> file:del_dir_r(in(R, "a")) end, [<<>>]},
             {"deleted directory named itself", fun(R) -> file:del_dir_r(in(R, "a")) end,
              [<<"a/b">>, <<"a">>]},
             {"renamed directory", fun(R) -> file:rename(in(R, "a"), in(R, "n")) end, [<<>>]},
             {"replaced directory", fun(R) -> file:rename(in(R, "a"), in(R, "n")),
                                              write(R, "a/other", <<>>) end, [<<>>]},
             {"directory became file", fun(R) -> file:del_dir_r(in(R, "a")),
                                                 write(R, "a", <<>>) end, [<<"a/b">>]},
             {"cache directory only", fun(R) -> write(R, ".orvel.cache/x", <<>>) end,
              [<<".orvel.cache">>, <<".orvel.cache/x">>]}]].

unknownPlaceIsKnownAgainOnceSeen_test() ->
    lab(fun(Root) ->
                write(Root, "d/f", <<"1">>),
                {Entries, []} = Full = engine_scan:full(Root),
                Hidden = {maps:remove(<<"d/f">>, Entries), [<<"d">>]},
                ?assertEqual(Full, engine_scan:partial(Root, [<<"d">>], Hidden))
        end).
