%% Runs the tests for the build: the exit status says how they went.
-module(engine_tests).

-export([main/1]).

main([Suite]) ->
    Modules = modules(Suite),
    [_ | _] = Modules,
    case eunit:test(Modules, [verbose]) of
        ok -> halt(0);
        _ -> halt(1)
    end.

%% Every test module beside this one belongs to one of the two suites.
modules("endtoend") -> [engine_endtoend_tests];
modules("unit") ->
    Dir = filename:dirname(code:which(?MODULE)),
    Names = [filename:basename(File, ".beam")
             || File <- filelib:wildcard(filename:join(Dir, "*_tests.beam"))],
    [list_to_atom(Name) || Name <- lists:sort(Names),
                           Name =/= "engine_tests", Name =/= "engine_endtoend_tests"].
