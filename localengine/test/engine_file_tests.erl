-module(engine_file_tests).

-include_lib("eunit/include/eunit.hrl").

-import(engine_lab, [in/2, read/1, write/3]).

lab(Test) ->
    Lab = engine_lab:new(),
    try Test(Lab) after engine_lab:remove(Lab) end.

atomicWriteReplacesAndSetsTheMode_test() ->
    lab(fun(Lab) ->
                write(Lab, "f.new", <<"left over">>),
                ok = engine_file:write_atomic(in(Lab, "f"), <<"one">>, 8#600),
                ok = engine_file:write_atomic(in(Lab, "f"), <<"two">>, 8#600),
                ?assertEqual(<<"two">>, read(in(Lab, "f"))),
                ?assertEqual({ok, [<<"f">>]}, engine_file:list(Lab)),
                {ok, Info} = file:read_file_info(in(Lab, "f")),
                engine_lab:unless_windows("it has no modes",
                                          fun() -> ?assertEqual(8#600, element(8, Info) band 8#777) end)
        end).

failedWriteKeepsTheOldContent_test() ->
    lab(fun(Lab) ->
                write(Lab, "f/inside", <<"old">>),
                ?assertMatch({error, _}, engine_file:write_atomic(in(Lab, "f"), <<"x">>, 8#600)),
                ?assertEqual(<<"old">>, read(in(Lab, "f/inside"))),
                ?assertMatch({error, enoent},
                             engine_file:write_atomic(in(Lab, "none/f"), <<"x">>, 8#600))
        end).

linksAreNotFollowed_test() ->
    engine_lab:unless_windows("it makes them for few users", fun() ->
        lab(fun(Lab) ->
                    write(Lab, "f", <<"1">>),
                    ok = file:make_symlink("f", in(Lab, "link")),
                    ok = file:make_symlink("none", in(Lab, "broken")),
                    ?assertEqual([other, other],
                                 [engine_file:look(in(Lab, Name)) || Name <- ["link", "broken"]])
            end)
    end).

junctionsAreNotFollowed_test() ->
    engine_lab:on_windows(fun() ->
        lab(fun(Lab) ->
                    write(Lab, "dir/f", <<"1">>),
                    case engine_lab:junction(in(Lab, "dir"), in(Lab, "junction")) of
                        true -> ?assertEqual(other, engine_file:look(in(Lab, "junction")));
                        false -> ok
                    end
            end)
    end).

nothingIsBelowAFile_test() ->
    lab(fun(Lab) ->
                write(Lab, "f", <<"1">>),
                ?assertEqual(absent, engine_file:look(in(Lab, "f/x")))
        end).

whatIsMarkedAsReadOnlyIsDeletedAndReplaced_test() ->
    lab(fun(Lab) ->
                [write(Lab, Name, <<"old">>) || Name <- ["a", "b"]],
                ok = file:make_dir(in(Lab, "dir")),
                [ok = file:change_mode(in(Lab, Name), 8#500) || Name <- ["a", "b", "dir"]],
                write(Lab, "new", <<"new">>),
                ok = engine_file:delete(in(Lab, "a")),
                ok = engine_file:delete_dir(in(Lab, "dir")),
                ok = engine_file:rename(in(Lab, "new"), in(Lab, "b")),
                ?assertEqual({ok, [<<"b">>]}, engine_file:list(Lab)),
                ?assertEqual(<<"new">>, read(in(Lab, "b")))
        end).

markStaysOnAFileThatSomebodyHoldsOpen_test() ->
    engine_lab:on_windows(fun() ->
        lab(fun(Lab) ->
                    write(Lab, "f", <<"1">>),
                    write(Lab, "new", <<"2">>),
                    ok = file:change_mode(in(Lab, "f"), 8#444),
                    Held = engine_lab:hold(in(Lab, "f")),
                    {file, _} = Before = engine_file:look(in(Lab, "f")),
                    ?assertEqual({error, eacces}, engine_file:delete(in(Lab, "f"))),
                    ?assertEqual({error, eacces}, engine_file:rename(in(Lab, "new"), in(Lab, "f"))),
                    engine_lab:release(Held),
                    ?assertEqual(Before, engine_file:look(in(Lab, "f"))),
                    {ok, Info} = file:read_file_info(in(Lab, "f")),
                    ?assertEqual(0, element(8, Info) band 8#200)
            end)
    end).

longPathsAreFound_test() ->
    lab(fun(Lab) ->
                Deep = lists:foldl(fun(_, Path) -> <<Path/binary, "/", (binary:copy(<<"d">>, 100))/binary>> end,
                                   Lab, lists:seq(1, 5)),
                write(Deep, "f", <<"1">>),
                ?assertEqual({ok, [<<"f">>]}, engine_file:list(Deep)),
                ?assertMatch({file, {1, _, _, _}}, engine_file:look(in(Deep, "f")))
        end).

namesBeyondTheBasicPlaneTravel_test() ->
    lab(fun(Lab) ->
                [Name, Renamed] = [<<"smeh ", Character/utf8, ".txt">> || Character <- [16#1F602, 16#10FFFF]],
                write(Lab, Name, <<"1">>),
                ?assertEqual({ok, [Name]}, engine_file:list(Lab)),
                ?assertEqual(<<"1">>, read(in(Lab, unicode:characters_to_list(Name)))),
                ok = file:rename(in(Lab, Name), in(Lab, Renamed)),
                ?assertEqual({ok, [Renamed]}, engine_file:list(Lab)),
                ?assertEqual(<<"1">>, read(in(Lab, Renamed)))
        end).

hashIsOfTheContent_test() ->
    lab(fun(Lab) ->
                Bytes = crypto:strong_rand_bytes(600000),
                write(Lab, "f", Bytes),
                ?assertEqual({ok, crypto:hash(sha256, Bytes)}, engine_file:hash(in(Lab, "f"))),
                ?assertEqual({error, enoent}, engine_file:hash(in(Lab, "none")))
        end).

everyNameIsListedAsBytes_test() ->
    lab(fun(Lab) ->
                Names = lists:sort([<<"ž"/utf8>> | case engine_names:system() of
                                                       windows -> [];
                                                       other -> [<<"a\nb">>, <<255, 254>>]
                                                   end]),
                [write(Lab, Name, <<>>) || Name <- Names],
                ?assertEqual({ok, Names}, engine_file:list(Lab))
        end).

termsReadBackWithAllTheirBytes_test() ->
    lab(fun(Lab) ->
                Term = #{<<"č \"q\""/utf8>> => [{1, <<255, 0, 10>>}]},
                ok = engine_file:write_term(in(Lab, "t"), Term),
                ?assertEqual({ok, Term}, engine_file:read_term(in(Lab, "t"))),
                ?assertEqual({error, enoent}, engine_file:read_term(in(Lab, "none"))),
                write(Lab, "t", <<"{half">>),
                ?assertEqual({error, damaged}, engine_file:read_term(in(Lab, "t")))
        end).
