%% A shell script plays the watching program.
-module(engine_watch_tests).

-include_lib("eunit/include/eunit.hrl").

-import(engine_lab, [in/2]).

%% What a watch tells of what the script says.
watched(Script, Test) ->
    engine_lab:unless_windows("no shell runs there", fun() ->
        Lab = engine_lab:new(),
        Program = in(Lab, <<"prog č ram"/utf8>>),
        ok = file:write_file(Program, ["#!/bin/sh\n", Script, "\n"]),
        ok = file:change_mode(Program, 8#755),
        process_flag(trap_exit, true),
        try Test(engine_watch:start_link(Program, in(Lab, <<"d i r">>)))
        after
            process_flag(trap_exit, false),
            engine_lab:remove(Lab)
        end
    end).

told(Watch) ->
    receive {watch, Watch, What} -> What
    after 10000 -> error(nothing_told)
    end.

ended(Watch) ->
    receive {'EXIT', Watch, Reason} -> Reason
    after 10000 -> error(goes_on)
    end.

changedDirectoriesComeWithTheirNames_test() ->
    watched("printf '=\\n'; printf '+a%%20b/%%25/%%C4%%8D\\n'; printf '+\\n'; read x",
            fun(Watch) ->
                    ?assertEqual(all, told(Watch)),
                    Dirs = fun Dirs(Found) when length(Found) >= 2 -> lists:usort(Found);
                               Dirs(Found) -> {changed, More} = told(Watch), Dirs(More ++ Found)
                           end,
                    ?assertEqual([<<>>, <<"a b/%/č"/utf8>>], Dirs([]))
            end).

whatMayHaveBeenMissedIsEverything_test() ->
    watched("echo '!'; read x", fun(Watch) -> ?assertEqual(all, told(Watch)) end).

directoryIsGivenToTheProgram_test() ->
    watched("printf '+'; basename \"$1\" | tr ' ' _; read x",
            fun(Watch) -> ?assertEqual({changed, [<<"d_i_r">>]}, told(Watch)) end).

endOfTheProgramEndsTheWatch_test() ->
    watched("echo -; exit 1", fun(Watch) -> ?assertEqual(normal, ended(Watch)) end).

programThatCannotBeStartedEndsTheWatch_test() ->
    #{level := Level} = logger:get_primary_config(),
    ok = logger:set_primary_config(level, none),
    process_flag(trap_exit, true),
    try ?assertMatch({enoent, _}, ended(engine_watch:start_link(<<"/nonexistent/program">>, <<"/">>)))
    after
        process_flag(trap_exit, false),
        ok = logger:set_primary_config(level, Level)
    end.

programEndsWithTheWatch_test() ->
    watched("echo \"+$$\"; while read x; do :; done; sleep 0.1",
            fun(Watch) ->
                    {changed, [Pid]} = told(Watch),
                    unlink(Watch),
                    exit(Watch, kill),
                    engine_lab:wait(ended, fun() -> not engine_lab:exists(<<"/proc/", Pid/binary>>) end)
            end).
