%% Runs the tests for the build: the exit status says how they went.
-module(engine_tests).

-export([main/1, patiently/1]).

main([Suite]) ->
    Modules = modules(Suite),
    [_ | _] = Modules,
    case eunit:test([patiently(Module) || Module <- Modules], [verbose]) of
        ok -> halt(0);
        _ -> halt(1)
    end.

%% EUnit gives a test five seconds, which a busy disk can take for itself.
patiently(Module) ->
    Functions = [{atom_to_list(Name), Name} || {Name, 0} <- Module:module_info(exports)],
    {atom_to_list(Module),
     [{timeout, 60, {Module, Name}} || {Text, Name} <- Functions, lists:suffix("_test", Text)]
     ++ [{generator, Module, Name} || {Text, Name} <- Functions, lists:suffix("_test_", Text)]}.

%% Every test module beside this one belongs to one of the two suites.
modules("endtoend") -> [engine_endtoend_tests];
modules("unit") ->
    Dir = filename:dirname(code:which(?MODULE)),
    Names = [filename:basename(File, ".beam")
             || File <- filelib:wildcard(filename:join(Dir, "*_tests.beam"))],
    [list_to_atom(Name) || Name <- lists:sort(Names),
                           Name =/= "engine_tests", Name =/= "engine_endtoend_tests"].
