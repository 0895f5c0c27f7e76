-module(engine_copy_tests).

-include_lib("eunit/include/eunit.hrl").
-include_lib("kernel/include/file.hrl").

-import(engine_lab, [in/2, write/3, read/1]).

lab(Test) ->
    Lab = engine_lab:new(),
    write(Lab, "from", <<"content">>),
    {file, Sig} = engine_file:look(in(Lab, "from")),
    Job = #{from => in(Lab, "from"), seen => Sig, to => in(Lab, "to"), expect => absent,
            temp => in(Lab, "temp")},
    try Test(Lab, Job)
    after engine_lab:remove(Lab)
    end.

copy(Job) -> copy(Job, fun(Bytes, Sum) -> Bytes + Sum end).

copy(Job, Tell) ->
    engine_copy:copy(Job, unlimited, fun file:open/2, Tell, 0, fun() -> true end).

givesTheHashAndTellsTheBytes_test() ->
    lab(fun(Lab, Job) ->
                ok = file:change_mode(in(Lab, "from"), 8#755),
                {file, Sig} = engine_file:look(in(Lab, "from")),
                {{ok, Hash, Made}, 7} = copy(Job#{seen := Sig}),
                ?assertEqual(crypto:hash(sha256, <<"content">>), Hash),
                ?assertEqual({file, Made}, engine_file:look(in(Lab, "to"))),
                {ok, Info} = file:read_file_info(in(Lab, "to")),
                {ok, #file_info{mode = Mode}} = file:read_file_info(in(Lab, "from")),
                ?assertEqual(Mode, element(8, Info)),
                engine_lab:unless_windows("it has no modes", fun() -> ?assertEqual(8#755, Mode band 8#777) end),
                ?assertNot(engine_lab:exists(in(Lab, "temp")))
        end).

readOnlyFileArrivesSoAndIsReplaced_test() ->
    lab(fun(Lab, Job) ->
                ok = file:change_mode(in(Lab, "from"), 8#444),
                {file, Sig} = engine_file:look(in(Lab, "from")),
                {{ok, _, Made}, _} = copy(Job#{seen := Sig}),
                ?assertEqual({file, Made}, engine_file:look(in(Lab, "to"))),
                ?assertEqual(8#444, mode(in(Lab, "to"))),
                ?assertNot(engine_lab:exists(in(Lab, "temp"))),
                ok = file:change_mode(in(Lab, "from"), 8#644),
                write(Lab, "from", <<"newer">>),
                {file, NewSig} = engine_file:look(in(Lab, "from")),
                ?assertMatch({{ok, _, _}, _}, copy(Job#{seen := NewSig, expect := {file, Made}})),
                ?assertEqual(<<"newer">>, read(in(Lab, "to"))),
                ?assertEqual(8#200, mode(in(Lab, "to")) band 8#200)
        end).

mode(Path) ->
    {ok, #file_info{mode = Mode}} = file:read_file_info(Path),
    Mode band 8#777.

givesUpWithoutATrace_test_() ->
    [{Name, fun() ->
                    lab(fun(Lab, Job) ->
                                Tell = fun(0, Acc) -> Meanwhile(Lab), Acc; (_, Acc) -> Acc end,
                                ?assertEqual({error, changed}, element(1, copy(Job, Tell))),
                                ?assertEqual(Left, read(in(Lab, "to"))),
                                ?assertNot(engine_lab:exists(in(Lab, "temp")))
                        end)
            end}
     || {Name, Meanwhile, Left} <-
            [{"source grew", fun(Lab) -> write(Lab, "from", <<"content and more">>) end, enoent},
             {"target appeared", fun(Lab) -> write(Lab, "to", <<"theirs">>) end, <<"theirs">>}]].

givesUpWhenTheSourceWasReplaced_test() ->
    engine_lab:unless_windows("a file that is read cannot be replaced there", fun() ->
        lab(fun(Lab, Job) ->
                    Tell = fun(0, Acc) ->
                                   write(Lab, "x", <<"content">>),
                                   ok = file:rename(in(Lab, "x"), in(Lab, "from")),
                                   Acc;
                              (_, Acc) -> Acc
                           end,
                    ?assertEqual({error, changed}, element(1, copy(Job, Tell))),
                    ?assertEqual(enoent, read(in(Lab, "to"))),
                    ?assertNot(engine_lab:exists(in(Lab, "temp")))
            end)
    end).

targetThatAppearsAtTheLastMomentIsKept_test() ->
    lab(fun(Lab, Job) ->
                Appears = fun() -> write(Lab, "to", <<"theirs">>), true end,
                ?assertMatch({{error, changed}, _},
                             engine_copy:copy(Job, unlimited, fun file:open/2,
                                              fun(_, Acc) -> Acc end, 0, Appears)),
                ?assertEqual(<<"theirs">>, read(in(Lab, "to")))
        end).

sourceThatIsGoneIsAnError_test() ->
    lab(fun(Lab, Job) ->
                ok = file:delete(in(Lab, "from")),
                ?assertEqual({{error, enoent}, 0}, copy(Job))
        end).

veto_test() ->
    lab(fun(Lab, Job) ->
                {Result, _} = engine_copy:copy(Job, unlimited, fun file:open/2,
                                               fun(_, Acc) -> Acc end, 0, fun() -> false end),
                ?assertEqual({error, root_changed}, Result),
                ?assertNot(engine_lab:exists(in(Lab, "to")))
        end).

rateSlowsDown_test() ->
    lab(fun(Lab, Job) ->
                write(Lab, "from", binary:copy(<<"x">>, 1000)),
                {file, Sig} = engine_file:look(in(Lab, "from")),
                {Micros, {{ok, _, _}, _}} =
                    timer:tc(fun() ->
                                     engine_copy:copy(Job#{seen := Sig}, 5000, fun file:open/2,
                                                      fun(_, Acc) -> Acc end, 0,
                                                      fun() -> true end)
                             end),
                ?assert(Micros >= 190000)
        end).
