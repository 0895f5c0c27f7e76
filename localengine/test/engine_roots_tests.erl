-module(engine_roots_tests).

-include_lib("eunit/include/eunit.hrl").

-import(engine_lab, [in/2, write/3]).

lab(Test) ->
    Lab = engine_lab:new(),
    try Test(Lab) after engine_lab:remove(Lab) end.

rootsFileIsAsciiAndReadsBack_test() ->
    lab(fun(Lab) ->
                Root = in(Lab, <<"Škatla \"x\""/utf8>>),
                ok = engine_roots:write(Lab, 5, Root),
                ?assertEqual({ok, Root}, engine_roots:read(Lab, 5)),
                ?assertEqual([], [C || <<C>> <= engine_lab:read(in(Lab, "5.json")), C > 126])
        end).

unusableRootsFileCountsAsNone_test_() ->
    [fun() -> lab(fun(Lab) ->
                          write(Lab, "5.json", Text),
                          ?assertEqual(none, engine_roots:read(Lab, 5))
                  end)
     end || Text <- [<<>>, <<"[]">>, <<"{}">>, <<"[{\"path\":\"/x\"}]">>, <<"[{">>,
                     <<"[{\"path\":7,\"name\":\"x\"}]">>]].

folderOfAnotherAccountIsNotTaken_test() ->
    lab(fun(Lab) ->
                {ok, First} = engine_roots:choose(in(Lab, "new/home"), <<"Orvel">>, 1),
                ?assertEqual(in(Lab, "new/home/Orvel"), First),
                {ok, _} = engine_roots:claim(First, 1),
                ?assertEqual({ok, First}, engine_roots:choose(in(Lab, "new/home"), <<"Orvel">>, 1)),
                ?assertEqual({ok, in(Lab, "new/home/Orvel 2")},
                             engine_roots:choose(in(Lab, "new/home"), <<"Orvel">>, 2))
        end).

existingFolderIsTaken_test() ->
    lab(fun(Lab) ->
                write(Lab, "Orvel/f", <<>>),
                ?assertEqual({ok, in(Lab, "Orvel")}, engine_roots:choose(Lab, <<"Orvel">>, 1))
        end).

fileOfThatNameIsPassedOver_test() ->
    lab(fun(Lab) ->
                write(Lab, "Orvel", <<>>),
                ?assertEqual({ok, in(Lab, "Orvel 2")}, engine_roots:choose(Lab, <<"Orvel">>, 1))
        end).

directoryThatGoesWhileItIsClaimedIsNotMadeAgain_test() ->
    engine_lab:unless_windows("a directory goes there with its last handle, unless something was made in it by then",
                              fun goesWhileItIsClaimed/0).

goesWhileItIsClaimed() ->
    lab(fun(Lab) ->
                Root = in(Lab, "root"),
                [begin
                     ok = file:make_dir(Root),
                     {Pid, Ref} = spawn_monitor(fun() -> engine_roots:claim(Root, 1) end),
                     Gone = file:del_dir_r(Root),
                     receive {'DOWN', Ref, process, Pid, normal} -> ok end,
                     case Gone of
                         ok -> ?assertNot(engine_lab:exists(Root));
                         _ -> _ = file:del_dir_r(Root) % something was made in it
                     end
                 end || _ <- lists:seq(1, 500)]
        end).

markerTellsTheKnownDirectoryFromAnother_test() ->
    lab(fun(Lab) ->
                ?assertEqual(missing, engine_roots:check(in(Lab, "none"))),
                ?assertEqual({error, enoent}, engine_roots:claim(in(Lab, "none"), 1)),
                ?assertEqual(unmarked, engine_roots:check(Lab)),
                {ok, Token} = engine_roots:claim(Lab, 1),
                ?assertEqual({marked, 1, Token}, engine_roots:check(Lab)),
                ?assertEqual({ok, Token}, engine_roots:claim(Lab, 1)),
                {ok, Other} = engine_roots:claim(Lab, 2),
                ?assertNotEqual(Token, Other)
        end).
