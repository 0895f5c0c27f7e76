-module(engine_mirror_tests).

-include_lib("eunit/include/eunit.hrl").

-import(engine_lab, [in/2, write/3, read/1, tree/1]).

-define(UID, 7).

%% Two roots and a mirror between them.
lab(Test) -> lab(#{}, Test).

lab(Options, Test) ->
    Lab = engine_lab:new(),
    [ok = file:make_dir(in(Lab, Name)) || Name <- ["local", "cloud"]],
    _ = copies(),
    try Test(in(Lab, "local"), in(Lab, "cloud"), start(Lab, Options))
    after engine_lab:remove(Lab)
    end.

start(Lab, Options) ->
    Self = self(),
    Defaults = #{uid => ?UID, local => in(Lab, "local"), cloud => in(Lab, "cloud"),
                 tree => engine_tree:new(), quota => 1000000000, rate => unlimited,
                 opener => fun file:open/2,
                 report => fun(Report) -> Self ! {report, Report}, ok end},
    engine_mirror:new(maps:merge(Defaults, Options)).

%% Passes until nothing is in motion any more.
settle(Mirror) -> settle(Mirror, 20).

settle(Mirror, Tries) when Tries > 0 ->
    case engine_mirror:pass(all, true, Mirror) of
        {{done, #{again := true}}, Next} -> settle(Next, Tries - 1);
        {Result, Next} -> {Result, Next}
    end.

both_hold(Expected, Local, Cloud) ->
    ?assertEqual(Expected, tree(Local)),
    ?assertEqual(Expected, tree(Cloud)).

%% The uploads that each report of progress tells of.
uploads() ->
    receive
        {report, {progress, #{uploads := Uploads}}} -> [Uploads | uploads()];
        {report, _} -> uploads()
    after 0 -> []
    end.

copies() -> copies(0).

copies(Count) ->
    receive
        {report, {progress, _}} -> copies(Count + 1);
        {report, _} -> copies(Count)
    after 0 -> Count
    end.

copiesBothWaysWithDirectoriesAndOddNames_test() ->
    lab(fun(L, C, M) ->
                {Dir, Bad} = case engine_names:system() of
                                 windows -> {<<"čšž"/utf8>>, <<"good name">>};
                                 other -> {<<"čšž \"quoted\"\nline"/utf8>>, <<"bad", 16#FF, "name">>}
                             end,
                Odd = <<Dir/binary, "/日本 😀.txt"/utf8>>,
                write(L, Odd, <<"up">>),
                ok = file:make_dir(in(L, <<"empty">>)),
                write(C, <<"deep/er/file">>, <<"down">>),
                write(C, Bad, <<"bytes">>),
                {{done, #{retry := false, space := 11}}, _} = settle(M),
                both_hold(#{Dir => dir, Odd => <<"up">>,
                            <<"empty">> => dir, <<"deep">> => dir, <<"deep/er">> => dir,
                            <<"deep/er/file">> => <<"down">>, Bad => <<"bytes">>}, L, C)
        end).

held() ->
    receive
        {report, {held, Path, Reason}} -> [{Path, Reason} | held()];
        {report, _} -> held()
    after 0 -> []
    end.

whatWindowsCannotHoldStaysAndIsToldOnce_test() ->
    engine_lab:unless_windows("such names are not made there", fun() ->
        lab(#{system => windows},
            fun(L, C, M0) ->
                    Names = [<<"aux.txt">>, <<"end.">>, <<"10:15">>, <<"dir ">>],
                    [write(C, Name, <<"1">>) || Name <- Names -- [<<"dir ">>]],
                    write(C, <<"dir /f">>, <<"1">>),
                    write(C, <<"fine">>, <<"1">>),
                    {{done, #{retry := false}}, M1} = settle(M0),
                    ?assertEqual(#{<<"fine">> => <<"1">>}, tree(L)),
                    ?assertEqual(lists:sort(Names), lists:sort([Path || {Path, _} <- held()])),
                    ?assertEqual(6, map_size(tree(C))),
                    settle(M1),
                    ?assertEqual([], held())
            end)
    end).

namesThatDifferInCaseStayApart_test() ->
    engine_lab:unless_windows("such names are not made there", fun() ->
        lab(#{system => windows},
            fun(L, C, M0) ->
                    write(L, <<"Read">>, <<"1">>),
                    {_, M1} = settle(M0),
                    write(C, <<"READ">>, <<"2">>),
                    write(C, <<"new/a">>, <<"3">>),
                    write(L, <<"NEW/a">>, <<"4">>),
                    {{done, #{retry := false}}, _} = settle(M1),
                    ?assertEqual(#{<<"Read">> => <<"1">>, <<"NEW">> => dir, <<"NEW/a">> => <<"4">>}, tree(L)),
                    ?assertEqual(#{<<"Read">> => <<"1">>, <<"READ">> => <<"2">>, <<"NEW">> => dir,
                                   <<"NEW/a">> => <<"4">>, <<"new">> => dir, <<"new/a">> => <<"3">>}, tree(C)),
                    ?assertEqual([{<<"READ">>, {case_of, <<"Read">>}}, {<<"new">>, {case_of, <<"NEW">>}}],
                                 lists:sort(held()))
            end)
    end).

renameInCaseOnlyIsFollowed_test() ->
    engine_lab:unless_windows("Wine says that it renames so, and does not", fun renameInCase/0).

renameInCase() ->
    lab(#{system => windows},
        fun(L, C, M0) ->
                write(L, <<"read/f">>, <<"1">>),
                {_, M1} = settle(M0),
                ok = file:rename(in(L, <<"read/f">>), in(L, <<"read/F">>)),
                {_, M2} = settle(M1),
                both_hold(#{<<"read">> => dir, <<"read/F">> => <<"1">>}, L, C),
                ok = file:rename(in(C, <<"read">>), in(C, <<"Read">>)),
                settle(M2),
                both_hold(#{<<"Read">> => dir, <<"Read/F">> => <<"1">>}, L, C)
        end).

theFoldersIconStaysOnItsComputer_test() ->
    lab(fun(L, C, M) ->
                write(L, <<"desktop.ini">>, <<"1">>),
                write(L, <<"d/desktop.ini">>, <<"2">>),
                settle(M),
                ?assertEqual(#{<<"d">> => dir, <<"d/desktop.ini">> => <<"2">>}, tree(C))
        end).

copiesKeepTimeAndLeaveNoTemporaryFiles_test() ->
    lab(fun(L, C, M) ->
                write(L, "f", <<"x">>),
                engine_lab:age(in(L, "f")),
                settle(M),
                ?assertEqual(filelib:last_modified(in(L, "f")), filelib:last_modified(in(C, "f"))),
                ?assertEqual({ok, [<<"root.id">>]},
                             engine_file:list(in(C, ".orvel.cache")))
        end).

changeOfTheSameSizeIsSeenWithinTheSecond_test() ->
    lab(fun(L, C, M0) ->
                write(L, "f", <<"one">>),
                {_, M1} = settle(M0),
                write(L, "f", <<"two">>),
                {_, M2} = settle(M1),
                ?assertEqual(<<"two">>, read(in(C, "f"))),
                write(C, "f", <<"six">>),
                settle(M2),
                both_hold(#{<<"f">> => <<"six">>}, L, C)
        end).

changeThatNothingTellsOfIsSeenLater_test_() ->
    [{timeout, 30, fun() -> lab(fun(L, C, M) -> unseen_change(L, C, M, 10) end) end},
     {timeout, 30, fun() -> lab(fun(L, C, M) -> unseen_change(C, L, M, 10) end) end}].

%% Written once more within the second in which it was seen, and never again.
unseen_change(Here, There, M0, Tries) when Tries > 0 ->
    Name = <<"f", (integer_to_binary(Tries))/binary>>,
    write(Here, Name, <<"one">>),
    {_, M1} = settle(M0),
    Before = engine_file:look(in(Here, Name)),
    write(Here, Name, <<"two">>),
    case engine_file:look(in(Here, Name)) of
        Before -> pass_until(fun() -> read(in(There, Name)) =:= <<"two">> end, M1);
        _ -> unseen_change(Here, There, M1, Tries - 1) % the second was over
    end.

pass_until(Condition, Mirror) ->
    {_, Next} = engine_mirror:pass(all, false, Mirror),
    case Condition() of
        true -> ok;
        false -> receive after 20 -> pass_until(Condition, Next) end
    end.

changeAfterItWasReadIsKept_test_() ->
    Deleted = fun(_, C) -> ok = file:delete(in(C, "a")) end,
    Saved = fun(L, C) ->
                    write(L, "a", <<"one">>),
                    Deleted(L, C)
            end,
    Changed = fun(_, C) -> write(C, "a", <<"three">>) end,
    [{timeout, 60, Test} || Test <- [fun() -> kept(fun engine_lab:age/1, Saved, 10) end,
                                     fun() -> kept(fun(_) -> ok end, Deleted, 10) end,
                                     fun() -> kept(fun(_) -> ok end, Changed, 10) end]].

%% Written once more, within the second, while the next file is read.
kept(Age, Change, Tries) when Tries > 0 ->
    Armed = ets:new(armed, [public]),
    Opener = fun(Path, Modes) ->
                     _ = filename:basename(Path) =:= <<"b">> andalso ets:take(Armed, change) =/= []
                         andalso write(filename:dirname(Path), "a", <<"two">>),
                     file:open(Path, Modes)
             end,
    {Before, After, Held} =
        lab(#{opener => Opener},
            fun(L, C, M0) ->
                    write(L, "a", <<"one">>),
                    Age(in(L, "a")),
                    write(L, "b", <<"one">>),
                    {_, M1} = settle(M0),
                    Change(L, C),
                    ok = file:delete(in(C, "b")),
                    ets:insert(Armed, {change}),
                    Looks = engine_file:look(in(L, "a")),
                    {_, M2} = engine_mirror:pass(all, true, M1),
                    LooksNow = engine_file:look(in(L, "a")),
                    settle(M2),
                    {Looks, LooksNow, maps:values(tree(L))}
            end),
    case After of
        {file, _} when After =/= Before -> kept(Age, Change, Tries - 1); % the second was over
        _ -> ?assert(lists:member(<<"two">>, Held))
    end.

whatIsCertainIsNotReadAgain_test_() ->
    Self = self(),
    Opener = fun(Path, Modes) -> Self ! opened, file:open(Path, Modes) end,
    [fun() ->
             lab(#{opener => Opener},
                 fun(L, _, M0) ->
                         write(L, "f", <<"1">>),
                         ok = file:change_time(in(L, "f"), {{Year, 1, 1}, {12, 0, 0}}),
                         {_, M1} = settle(M0),
                         ?assert(opened() > 0),
                         {_, M2} = engine_mirror:pass(all, false, M1),
                         {_, _} = engine_mirror:pass(all, false, M2),
                         ?assertEqual(0, opened())
                 end)
     end || Year <- [2020, 2040]].

opened() ->
    receive opened -> 1 + opened()
    after 0 -> 0
    end.

readOnlyFileIsCarriedChangedAndDeleted_test() ->
    lab(fun(L, C, M0) ->
                write(L, "d/f", <<"1">>),
                ok = file:change_mode(in(L, "d/f"), 8#444),
                {_, M1} = settle(M0),
                both_hold(#{<<"d">> => dir, <<"d/f">> => <<"1">>}, L, C),
                ?assertEqual(8#444, mode(in(C, "d/f"))),
                ok = engine_file:delete(in(L, "d/f")),
                write(L, "d/f", <<"22">>),
                {_, M2} = settle(M1),
                both_hold(#{<<"d">> => dir, <<"d/f">> => <<"22">>}, L, C),
                [ok = file:change_mode(in(C, Name), 8#555) || Name <- ["d/f", "d"]],
                ok = engine_file:delete(in(L, "d/f")),
                ok = file:del_dir(in(L, "d")),
                {{done, #{retry := false}}, _} = settle(M2),
                both_hold(#{}, L, C)
        end).

mode(Path) ->
    {ok, Info} = file:read_file_info(Path),
    element(8, Info) band 8#777.

touchedFileIsNotCopiedAgain_test() ->
    lab(fun(L, C, M0) ->
                write(L, "f", <<"same">>),
                {_, M1} = settle(M0),
                {file, Before} = engine_file:look(in(C, "f")),
                copies(),
                engine_lab:age(in(L, "f")),
                settle(M1),
                ?assertEqual({file, Before}, engine_file:look(in(C, "f"))),
                ?assertEqual(0, copies())
        end).

%% The tree is older than what an engine did just before it was killed.
ownDeletionThatIsNotRememberedDoesNotFollowARenamedDirectory_test() ->
    lab(fun(L, C, M0) ->
                write(L, "old/deleted", <<"1">>),
                write(L, "old/left", <<"2">>),
                {_, #{tree := Before}} = settle(M0),
                ok = file:rename(in(C, "old"), in(C, "new")),
                ok = file:delete(in(L, "old/deleted")),
                settle(start(filename:dirname(L), #{tree => Before})),
                both_hold(#{<<"new">> => dir, <<"new/deleted">> => <<"1">>,
                            <<"new/left">> => <<"2">>}, L, C)
        end).

deletionFollowsADirectoryThatIsRenamedMeanwhile_test() ->
    lab(fun(L, C, M0) ->
                write(L, "old/deleted", <<"1">>),
                write(L, "old/left", <<"2">>),
                {_, M1} = settle(M0),
                ok = file:rename(in(C, "old"), in(C, "new")),
                ok = file:delete(in(L, "old/deleted")),
                settle(M1),
                both_hold(#{<<"new">> => dir, <<"new/left">> => <<"2">>}, L, C)
        end).

renamesOnBothSidesInOneAnotherAreFollowedAfterAStart_test() ->
    lab(fun(L, C, M0) ->
                write(L, "a/sub/f", <<"1">>),
                {_, #{tree := Tree}} = settle(M0),
                ok = file:rename(in(L, "a"), in(L, "b")),
                ok = file:rename(in(C, "a/sub"), in(C, "a/sub2")),
                settle(start(filename:dirname(L), #{tree => Tree})),
                both_hold(#{<<"b">> => dir, <<"b/sub2">> => dir, <<"b/sub2/f">> => <<"1">>}, L, C)
        end).

deletionsOfWholeSubtreesFollow_test() ->
    lab(fun(L, C, M0) ->
                write(L, "a/b/c/f", <<"1">>),
                write(L, "a/g", <<"2">>),
                write(L, "keep", <<"3">>),
                {_, M1} = settle(M0),
                ok = file:del_dir_r(in(L, "a")),
                {{done, #{space := 1}}, M2} = settle(M1),
                both_hold(#{<<"keep">> => <<"3">>}, L, C),
                ok = file:delete(in(C, "keep")),
                settle(M2),
                both_hold(#{}, L, C)
        end).

renamedDirectoryIsRenamedAndKeepsItsIds_test() ->
    lab(fun(L, C, M0) ->
                Self = self(),
                write(L, "old/sub/f", <<"content">>),
                {_, M1} = settle(M0),
                {file, {_, _, _, Inode}} = engine_file:look(in(C, "old/sub/f")),
                copies(),
                ok = file:make_dir(in(L, "fresh")),
                ok = file:rename(in(L, "old"), in(L, "fresh/new")),
                #{tree := Tree} = M1,
                Ids = engine_tree:id_path(<<"old/sub/f">>, Tree),
                settle(M1#{report := fun(R) -> Self ! {report, R}, ok end}),
                ?assertMatch({file, {_, _, _, Inode}}, engine_file:look(in(C, "fresh/new/sub/f"))),
                ?assertEqual(0, copies()),
                ?assertEqual(tl(Ids), tl(tl(engine_tree:id_path(<<"fresh/new/sub/f">>, Tree))))
        end).

renameInTheCloudComesDown_test() ->
    lab(fun(L, C, M0) ->
                write(L, "f.txt", <<"content">>),
                {_, M1} = settle(M0),
                copies(),
                ok = file:rename(in(C, "f.txt"), in(C, "g.txt")),
                settle(M1),
                both_hold(#{<<"g.txt">> => <<"content">>}, L, C),
                ?assertEqual(0, copies())
        end).

renamedHereAndChangedThereInTheSameSecondKeepsBoth_test() ->
    lab(fun(L, C, M0) ->
                write(L, "f", <<"one">>),
                {_, M1} = settle(M0),
                ok = file:rename(in(L, "f"), in(L, "g")),
                write(C, "f", <<"two">>),
                settle(M1),
                both_hold(#{<<"f">> => <<"two">>, <<"g">> => <<"one">>}, L, C)
        end).

changeOnBothSidesKeepsBothVersions_test() ->
    lab(fun(L, C, M0) ->
                write(L, "report.txt", <<"first">>),
                {_, M1} = settle(M0),
                write(L, "report.txt", <<"mine">>),
                write(C, "report.txt", <<"theirs">>),
                settle(M1),
                Tree = tree(L),
                ?assertEqual(Tree, tree(C)),
                ?assertEqual(<<"theirs">>, maps:get(<<"report.txt">>, Tree)),
                [Name] = maps:keys(maps:remove(<<"report.txt">>, Tree)),
                ?assertEqual(<<"mine">>, maps:get(Name, Tree)),
                ?assertMatch({match, _},
                             re:run(Name, "^report \\(conflict [-0-9]{10} [.0-9]{8}\\)\\.txt$"))
        end).

sameChangeOnBothSidesIsNoConflict_test() ->
    lab(fun(L, C, M0) ->
                write(L, "f", <<"first">>),
                {_, M1} = settle(M0),
                write(L, "f", <<"second!">>),
                write(C, "f", <<"second!">>),
                settle(M1),
                both_hold(#{<<"f">> => <<"second!">>}, L, C)
        end).

changeWinsOverDeletion_test() ->
    lab(fun(L, C, M0) ->
                write(L, "d/f", <<"first">>),
                write(L, "d/g", <<"goes">>),
                write(L, "h", <<"first">>),
                {_, M1} = settle(M0),
                ok = file:del_dir_r(in(L, "d")),
                write(C, "d/f", <<"changed">>),
                ok = file:delete(in(C, "h")),
                write(L, "h", <<"changed too">>),
                settle(M1),
                both_hold(#{<<"d">> => dir, <<"d/f">> => <<"changed">>,
                            <<"h">> => <<"changed too">>}, L, C)
        end).

directoryBecomesFileAndBack_test() ->
    lab(fun(L, C, M0) ->
                write(L, "x/f", <<"1">>),
                {_, M1} = settle(M0),
                ok = file:del_dir_r(in(L, "x")),
                write(L, "x", <<"file now">>),
                {_, M2} = settle(M1),
                both_hold(#{<<"x">> => <<"file now">>}, L, C),
                ok = file:delete(in(C, "x")),
                write(C, "x/g", <<"dir again">>),
                settle(M2),
                both_hold(#{<<"x">> => dir, <<"x/g">> => <<"dir again">>}, L, C)
        end).

fileAgainstDirectoryKeepsBoth_test() ->
    lab(fun(L, C, M) ->
                write(L, "x", <<"file">>),
                write(C, "x/f", <<"in dir">>),
                settle(M),
                Tree = tree(L),
                ?assertEqual(Tree, tree(C)),
                ?assertMatch(#{<<"x">> := dir, <<"x/f">> := <<"in dir">>}, Tree),
                ?assertEqual([<<"file">>], maps:values(maps:without([<<"x">>, <<"x/f">>], Tree)))
        end).

symbolicLinksAreLeftAlone_test() ->
    engine_lab:unless_windows("it makes them for few users", fun symbolicLinks/0).

symbolicLinks() ->
    lab(fun(L, C, M0) ->
                write(L, "real/f", <<"1">>),
                ok = file:make_symlink("/etc", in(L, "link")),
                {_, M1} = settle(M0),
                ?assertEqual(#{<<"real">> => dir, <<"real/f">> => <<"1">>}, tree(C)),
                %% A file that became a link is not deleted on the other side.
                ok = file:delete(in(L, "real/f")),
                ok = file:make_symlink("/etc/passwd", in(L, "real/f")),
                {{done, #{retry := false}}, _} = settle(M1),
                ?assertEqual(<<"1">>, read(in(C, "real/f")))
        end).

moreThanABatchIsCarriedAndCountedDown_test_() ->
    {timeout, 60, fun() -> lab(fun many/3) end}.

many(L, C, M0) ->
    %% Under Wine each file takes a hundredth of a second.
    Dirs = case engine_names:system() of windows -> 10; other -> 60 end,
    Names = [<<"d", (integer_to_binary(D))/binary, "/sub/f", (integer_to_binary(N))/binary>>
             || D <- lists:seq(1, Dirs), N <- lists:seq(1, 50)],
    Half = length(Names) div 2,
    [write(case D rem 2 of 0 -> L; 1 -> C end, Name, Name) || {D, Name} <- lists:zip(lists:seq(1, length(Names)), Names)],
    Self = self(),
    %% The mirror waits for whoever takes the report.
    Slow = fun({progress, Figures}) -> Self ! {left, Figures}, receive after 2 -> ok end; (_) -> ok end,
    {{done, #{retry := false, again := false}}, M1} = engine_mirror:pass(all, true, M0#{report := Slow}),
    ?assertEqual(tree(L), tree(C)),
    ?assertEqual(length(Names), length([F || F <- maps:values(tree(L)), F =/= dir])),
    [#{uploads := Half, downloads := Half} | _] = Left = counted(),
    Sums = [Up + Down || #{uploads := Up, downloads := Down} <- Left],
    ?assertEqual(lists:reverse(lists:sort(Sums)), Sums),
    {{done, #{retry := false, again := false}}, _} = engine_mirror:pass(all, false, M1#{report := fun(R) -> error({not_settled, R}) end}).

counted() ->
    receive {left, Figures} -> [Figures | counted()]
    after 0 -> []
    end.

whatCouldNotBeDoneIsNotTriedUntilItChangesOrIsAskedFor_test() ->
    Self = self(),
    Opener = fun(Path, Modes) ->
                     case filename:basename(Path) of
                         <<"locked">> -> Self ! opened, {error, eacces};
                         _ -> file:open(Path, Modes)
                     end
             end,
    lab(#{opener => Opener},
        fun(L, _, M0) ->
                write(L, "locked", <<"1">>),
                {{done, #{retry := true}}, M1} = engine_mirror:pass(all, false, M0),
                ?assertEqual(1, opened()),
                {{done, #{retry := true}}, M2} = engine_mirror:pass(all, false, M1),
                ?assertEqual(0, opened()),
                write(L, "locked", <<"12">>),
                {{done, #{retry := true}}, M3} = engine_mirror:pass(all, false, M2),
                ?assertEqual(1, opened()),
                {{done, #{retry := true}}, _} = engine_mirror:pass([], true, M3),
                ?assertEqual(1, opened())
        end).

directoryThatIsRenamedTakesEverythingAlongInOneStep_test_() ->
    [{binary_to_list(<<From/binary, " to ", To/binary>>), fun() -> renamed_in_one_step(From, To) end}
     || {From, To} <- [{<<"old">>, <<"new">>}, {<<"in/a/old">>, <<"in/a/new">>}, {<<"in/a/old">>, <<"in/new">>},
                       {<<"old">>, <<"in/a/new">>}]].

renamed_in_one_step(From, To) ->
    lab(fun(L, C, M0) ->
                write(L, <<"in/a/stays">>, <<"1">>),
                [write(L, <<From/binary, "/d/f", (integer_to_binary(N))/binary>>, <<"1">>) || N <- lists:seq(1, 30)],
                {_, #{tree := Tree} = M1} = settle(M0),
                copies(),
                ok = file:rename(in(L, From), in(L, To)),
                Self = self(),
                Change = fun(Deltas) ->
                                 Self ! {changed, Deltas},
                                 lists:foreach(fun(Delta) -> engine_tree:change(Delta, Tree) end, Deltas)
                         end,
                Dirs = [engine_path:parent(From), engine_path:parent(To)],
                {{done, _}, _} = engine_mirror:pass(Dirs, false, M1#{change := Change}),
                ?assertEqual(tree(L), tree(C)),
                ?assertEqual(0, copies()),
                Deltas = lists:append((fun Taken() -> receive {changed, D} -> [D | Taken()] after 0 -> [] end end)()),
                ?assertMatch([{move, From, To}, {put, To, _}], Deltas)
        end).

spaceIsWhatTheCloudHolds_test() ->
    lab(fun(L, C, M0) ->
                write(L, "a", <<"1234">>),
                write(C, "d/b", <<"123">>),
                {{done, #{space := 7}}, M1} = settle(M0),
                write(C, "d/b", <<"12345">>),
                write(C, "d/sub/c", <<"1">>),
                {{done, #{space := 10}}, M2} = engine_mirror:pass([<<"d">>], true, M1),
                ok = file:del_dir_r(in(C, "d")),
                {{done, #{space := 4}}, M3} = engine_mirror:pass([<<>>], true, M2),
                write(L, "a", <<"1">>),
                {{done, #{space := 1}}, M4} = engine_mirror:pass([<<>>], true, M3),
                ok = file:rename(in(C, "a"), in(C, "z")),
                {{done, #{space := 1}}, M5} = engine_mirror:pass([<<>>], true, M4),
                write(L, "e/f", <<"123">>),
                {{done, #{space := 4}}, M6} = settle(M5),
                ok = file:del_dir_r(in(L, "e")),
                write(C, "e/g", <<"12">>),
                {{done, #{space := 3}}, _} = settle(M6),
                both_hold(#{<<"e">> => dir, <<"e/g">> => <<"12">>, <<"z">> => <<"1">>}, L, C)
        end).

junctionIsLeftAlone_test() ->
    engine_lab:on_windows(fun() ->
        lab(fun(L, C, M) ->
                    write(L, "real/f", <<"1">>),
                    case engine_lab:junction(in(L, "real"), in(L, "junction")) of
                        true ->
                            {{done, #{retry := false}}, _} = settle(M),
                            ?assertEqual(#{<<"real">> => dir, <<"real/f">> => <<"1">>}, tree(C));
                        false -> ok
                    end
            end)
    end).

whatSomebodyHoldsOpenIsCarriedAfterwards_test_() ->
    Write = fun(L) -> write(L, "f", <<"changed">>) end,
    Delete = fun(L) -> ok = file:delete(in(L, "f")) end,
    Rename = fun(L) -> ok = file:rename(in(L, "f"), in(L, "g")) end,
    Carried = fun(Change, Side, Expected) ->
                      engine_lab:on_windows(
                        fun() -> lab(fun(L, C, M) -> carried(Change, Side, Expected, L, C, M) end) end)
              end,
    [{Name, fun() -> Carried(Change, Side, Expected) end}
     || {Name, Change, Side, Expected} <-
            [{"changed here", Write, local, #{<<"f">> => <<"changed">>}},
             {"changed elsewhere", Write, cloud, #{<<"f">> => <<"changed">>}},
             {"deleted elsewhere", Delete, cloud, #{}},
             {"renamed elsewhere", Rename, cloud, #{<<"g">> => <<"1">>}}]].

carried(Change, Side, Expected, L, C, M0) ->
    write(L, "f", <<"1">>),
    engine_lab:age(in(L, "f")),
    {_, M1} = settle(M0),
    Change(L),
    Held = engine_lab:hold(in(case Side of local -> L; cloud -> C end, "f")),
    {{done, #{retry := true}}, M2} = settle(M1),
    ?assertMatch([_ | _], failures()),
    engine_lab:release(Held),
    ?assertEqual(<<"1">>, read(in(C, "f"))),
    {{done, #{retry := false}}, _} = settle(M2),
    both_hold(Expected, L, C).

failures() ->
    receive
        {report, {failed, Action, Reason}} -> [{Action, Reason} | failures()];
        {report, _} -> failures()
    after 0 -> []
    end.

linkInPlaceOfADirectoryAboveIsNotFollowed_test() ->
    engine_lab:unless_windows("Wine makes none", fun() ->
        lab(fun(L, C, M0) ->
                    write(L, "a/b/x", <<"1">>),
                    {_, M1} = settle(M0),
                    Elsewhere = in(filename:dirname(L), <<"elsewhere">>),
                    write(Elsewhere, "b/y", <<"2">>),
                    ok = file:del_dir_r(in(L, "a")),
                    ok = file:make_symlink(Elsewhere, in(L, "a")),
                    write(C, "a/b/z", <<"3">>),
                    {{done, _}, _} = engine_mirror:pass([<<"a/b">>], true, M1),
                    ?assertEqual(#{<<"a">> => dir, <<"a/b">> => dir, <<"a/b/x">> => <<"1">>, <<"a/b/z">> => <<"3">>},
                                 tree(C)),
                    ?assertEqual(#{<<"b">> => dir, <<"b/y">> => <<"2">>}, tree(Elsewhere))
            end)
    end).

whatIsBesideARenamedFileInANewDirectoryIsCarried_test() ->
    lab(fun(L, C, M0) ->
                write(L, "a/f", <<"1">>),
                {_, M1} = settle(M0),
                {file, {_, _, _, Inode}} = engine_file:look(in(C, "a/f")),
                write(L, "new/g", <<"2">>),
                ok = file:rename(in(L, "a/f"), in(L, "new/f")),
                {{done, _}, _} = engine_mirror:pass([<<>>, <<"a">>], false, M1),
                both_hold(#{<<"a">> => dir, <<"new">> => dir, <<"new/f">> => <<"1">>, <<"new/g">> => <<"2">>}, L, C),
                ?assertMatch({file, {_, _, _, Inode}}, engine_file:look(in(C, "new/f")))
        end).

fileRenamedInADirectoryIsRenamedThereToo_test() ->
    lab(fun(L, C, M0) ->
                write(L, "a/b/f", <<"1">>),
                {_, M1} = settle(M0),
                copies(),
                ok = file:rename(in(L, "a/b/f"), in(L, "a/b/g")),
                {{done, _}, _} = engine_mirror:pass([<<"a/b">>], false, M1),
                both_hold(#{<<"a">> => dir, <<"a/b">> => dir, <<"a/b/g">> => <<"1">>}, L, C),
                %% A copy could get the inode that was just freed.
                ?assertEqual(0, copies())
        end).

unreadableFileIsSkippedAndTriedAgain_test() ->
    Locks = ets:new(locks, [public]),
    Opener = fun(Path, Modes) ->
                     case ets:member(Locks, filename:basename(Path)) of
                         true -> {error, eacces};
                         false -> file:open(Path, Modes)
                     end
             end,
    lab(#{opener => Opener},
        fun(L, C, M0) ->
                ets:insert(Locks, {<<"locked">>}),
                write(L, "locked", <<"1">>),
                write(L, "open", <<"2">>),
                {{done, #{retry := true}}, M1} = settle(M0),
                ?assertEqual(#{<<"open">> => <<"2">>}, tree(C)),
                ?assertEqual([1], lists:usort(uploads())),
                ets:delete(Locks, <<"locked">>),
                {{done, #{retry := false}}, _} = settle(M1),
                both_hold(#{<<"locked">> => <<"1">>, <<"open">> => <<"2">>}, L, C)
        end).

fileThatChangesWhileItIsCopiedIsNotDone_test() ->
    Self = self(),
    Opener = fun(Path, Modes) ->
                     case filename:basename(Path) of
                         <<"busy">> -> Self ! opened;
                         _ -> ok
                     end,
                     Result = file:open(Path, Modes),
                     %% The writer goes on once the copy has begun.
                     ok = file:write_file(Path, <<"more">>, [append]),
                     Result
             end,
    lab(#{opener => Opener},
        fun(L, C, M0) ->
                write(L, "busy", <<"start">>),
                {{done, #{again := true}}, M1} = engine_mirror:pass(all, true, M0),
                receive opened -> ok after 0 -> error(not_tried) end,
                ?assertEqual(#{}, tree(C)),
                settle(M1#{opener := fun file:open/2}),
                both_hold(#{<<"busy">> => <<"startmore">>}, L, C)
        end).

whatDoesNotFitIsLeftForLater_test() ->
    lab(#{quota => 10},
        fun(L, C, M0) ->
                write(L, "a", <<"1234567">>),
                write(L, "b", <<"1234567">>),
                write(L, "c", <<"123">>),
                {{done, #{retry := true, space := 10}}, M1} = settle(M0),
                ?assertEqual([<<"a">>, <<"c">>], maps:keys(tree(C))),
                ok = file:delete(in(L, "a")),
                {{done, #{retry := false, space := 10}}, _} = settle(M1),
                both_hold(#{<<"b">> => <<"1234567">>, <<"c">> => <<"123">>}, L, C)
        end).

lostTreeMergesWithoutCopiesOrDeletions_test() ->
    lab(fun(L, C, M0) ->
                write(L, "d/same", <<"1">>),
                settle(M0),
                copies(),
                write(L, "mine", <<"2">>),
                write(C, "theirs", <<"3">>),
                settle(start(filename:dirname(L), #{})),
                both_hold(#{<<"d">> => dir, <<"d/same">> => <<"1">>, <<"mine">> => <<"2">>,
                            <<"theirs">> => <<"3">>}, L, C)
        end).

vanishedRootDeletesNothing_test_() ->
    [{atom_to_list(Side),
      fun() ->
              lab(fun(L, C, M0) ->
                          write(L, "d/f", <<"1">>),
                          {_, M1} = settle(M0),
                          {Root, Kept} = case Side of local -> {L, C}; cloud -> {C, L} end,
                          Away = <<Root/binary, ".away">>,
                          ok = file:rename(Root, Away),
                          {{blocked, Side}, M2} = settle(M1),
                          ?assertEqual(#{<<"d">> => dir, <<"d/f">> => <<"1">>}, tree(Kept)),
                          ok = file:rename(Away, Root),
                          copies(),
                          {{done, #{retry := false}}, _} = settle(M2),
                          both_hold(#{<<"d">> => dir, <<"d/f">> => <<"1">>}, L, C),
                          ?assertEqual(0, copies())
                  end)
      end} || Side <- [local, cloud]].

emptyDirectoryInPlaceOfARootIsFilled_test_() ->
    [{atom_to_list(Side),
      fun() ->
              lab(fun(L, C, M0) ->
                          write(L, "d/f", <<"1">>),
                          {_, M1} = settle(M0),
                          Root = case Side of local -> L; cloud -> C end,
                          ok = file:del_dir_r(Root),
                          ok = file:make_dir(Root),
                          settle(M1),
                          both_hold(#{<<"d">> => dir, <<"d/f">> => <<"1">>}, L, C)
                  end)
      end} || Side <- [local, cloud]].

onlyNamedDirectoriesAreLookedAtAgain_test() ->
    lab(fun(L, C, M0) ->
                write(L, "a/f", <<"1">>),
                write(L, "b/f", <<"1">>),
                {_, M1} = settle(M0),
                write(L, "a/new", <<"2">>),
                write(L, "b/new", <<"3">>),
                {_, M2} = engine_mirror:pass([<<"a">>], false, M1),
                ?assertEqual([<<"a">>, <<"a/f">>, <<"a/new">>, <<"b">>, <<"b/f">>],
                             maps:keys(tree(C))),
                {_, _} = engine_mirror:pass([<<>>, <<"b/is/gone">>], false, M2),
                ?assertEqual(<<"3">>, read(in(C, "b/new")))
        end).

temporaryFilesOfAnEarlierRunAreRemoved_test() ->
    lab(fun(L, C, _) ->
                write(L, "big", binary:copy(<<"x">>, 100000)),
                Self = self(),
                Report = fun({progress, _}) -> Self ! copying, ok; (_) -> ok end,
                {Worker, Monitor} = spawn_monitor(
                                      fun() -> settle(start(filename:dirname(L), #{rate => 1000, report => Report})) end),
                receive copying -> ok end,
                engine_lab:wait(temp, fun() -> filelib:wildcard("*.part",
                                    binary_to_list(in(C, ".orvel.cache"))) =/= [] end),
                exit(Worker, kill),
                receive {'DOWN', Monitor, _, _, killed} -> ok end,
                ?assertEqual(#{}, tree(C)),
                settle(start(filename:dirname(L), #{})),
                both_hold(#{<<"big">> => binary:copy(<<"x">>, 100000)}, L, C),
                ?assertEqual({ok, [<<"root.id">>]}, engine_file:list(in(C, ".orvel.cache")))
        end).

%% Whatever two people do at the same time, both sides end up the same, and
%% nothing that was written since they last agreed is lost.
anyMixtureOfChangesConverges_test_() ->
    [{"seed " ++ integer_to_list(Seed),
      {timeout, 60, fun() -> lab(fun(L, C, M) -> rounds(L, C, M, rand:seed_s(exsss, Seed)) end) end}}
     || Seed <- lists:seq(1, 12)].

rounds(L, C, M, Rand) ->
    lists:foldl(
      fun(_, {Mirror, R0}) ->
              Agreed = maps:values(tree(L)),
              {Count, R1} = rand:uniform_s(6, R0),
              R = lists:foldl(fun(_, Rn) -> random_change(L, C, Rn) end, R1, lists:seq(1, Count)),
              New = (maps:values(tree(L)) ++ maps:values(tree(C))) -- Agreed,
              {{done, #{retry := false}}, Next} = settle(Mirror),
              After = tree(L),
              ?assertEqual(After, tree(C)),
              ?assertEqual([], [Content || Content <- New, Content =/= dir, not
                                lists:member(Content, Agreed), not
                                lists:member(Content, maps:values(After))]),
              {Next, R}
      end, {M, Rand}, lists:seq(1, 25)).

random_change(L, C, R0) ->
    {Root, R1} = pick([L, C], R0),
    {From, R2} = random_path(R1),
    {To, R3} = random_path(R2),
    {What, R4} = pick([write, write, write, mkdir, delete, rename, rename], R3),
    {Number, R5} = rand:uniform_s(1000000, R4),
    {Pad, R6} = rand:uniform_s(3, R5),
    Path = in(Root, From),
    _ = case What of
            %% Contents are never used twice; sizes often are.
            write ->
                filelib:ensure_dir(Path),
                file:write_file(Path, [io_lib:format("~7..0b", [Number]), lists:duplicate(Pad, $x)]);
            mkdir -> filelib:ensure_path(Path);
            delete -> file:del_dir_r(Path);
            rename -> file:rename(Path, in(Root, To))
        end,
    R6.

random_path(R0) ->
    {Depth, R1} = rand:uniform_s(3, R0),
    lists:foldl(fun(_, {Path, R}) ->
                        {Name, Next} = pick([<<"a">>, <<"b">>, <<"c">>], R),
                        {engine_path:child(Path, Name), Next}
                end, {<<>>, R1}, lists:seq(1, Depth)).

pick(List, R0) ->
    {N, R1} = rand:uniform_s(length(List), R0),
    {lists:nth(N, List), R1}.
