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
                {Entries, []} = engine_scan:full(Root),
                ?assertEqual([<<"d">>, <<"d/.orvel.cache">>, <<"d/.orvel.cache/y">>], maps:keys(Entries))
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
