%% Where the native library is loaded these try it, elsewhere what stands in for
%% it as far as it does.
-module(engine_native_tests).

-include_lib("eunit/include/eunit.hrl").
-include_lib("kernel/include/file.hrl").

-import(engine_lab, [in/2, write/3, read/1]).

lab(Test) ->
    Lab = engine_lab:new(),
    try Test(Lab) after engine_lab:remove(Lab) end.

listingIsWhatEachLookGives_test() ->
    lab(fun(Lab) ->
                Names = [<<"b">>, <<"a b%">>, <<"č😀"/utf8>>, <<"B">>, <<"b.txt">>],
                [write(Lab, Name, Name) || Name <- Names -- [<<"B">>]],
                ok = file:make_dir(in(Lab, <<"dir">>)),
                engine_lab:age(in(Lab, <<"b">>)),
                {ok, Listing} = engine_native:listing(Lab),
                Sorted = lists:sort([<<"dir">> | Names -- [<<"B">>]]),
                ?assertEqual([{Name, engine_file:look(in(Lab, Name))} || Name <- Sorted], Listing)
        end).

whatIsNoFileIsSeenAndNotFollowed_test() ->
    engine_lab:unless_windows("it has none of these", fun() ->
        lab(fun(Lab) ->
                    ok = file:make_symlink("/etc", in(Lab, <<"link">>)),
                    ok = file:make_symlink("nowhere", in(Lab, <<"lost">>)),
                    write(Lab, <<255, 1>>, <<>>),
                    {ok, Listing} = engine_native:listing(Lab),
                    ?assertMatch([{<<"link">>, other}, {<<"lost">>, other}, {<<255, 1>>, {file, {0, _, _, _}}}], Listing)
            end)
    end).

directoryThatCannotBeListedIsAnError_test() ->
    lab(fun(Lab) ->
                write(Lab, <<"f">>, <<>>),
                ?assertEqual({error, enoent}, engine_native:listing(in(Lab, <<"none">>))),
                {error, NoDirectory} = engine_native:listing(in(Lab, <<"f">>)),
                ?assert(lists:member(NoDirectory, [enotdir, enoent])),
                ?assertMatch({error, _}, engine_native:listing(<<Lab/binary, 0, "x">>))
        end).

%% {From, Seen, Temp, To} for a file of some content.
file(Lab, Name, Content) ->
    From = in(Lab, <<Name/binary, ".from">>),
    write(Lab, <<Name/binary, ".from">>, Content),
    {file, Seen} = engine_file:look(From),
    {From, Seen, in(Lab, <<Name/binary, ".temp">>), in(Lab, <<Name/binary, ".to">>)}.

copied(Files) ->
    case engine_native:copy_small(Files) of
        [{error, enotsup} | _] -> none;
        Results -> Results
    end.

if_native(Results, Test) -> _ = Results =:= none orelse Test().

smallFilesAreCopiedWithTimeAndMode_test() ->
    lab(fun(Lab) ->
                Contents = [{<<"a">>, <<"content">>}, {<<"empty">>, <<>>}, {<<"big">>, crypto:strong_rand_bytes(65536)}],
                Aged = [begin
                            {From, _, Temp, To} = file(Lab, Name, Content),
                            ok = file:change_mode(From, 8#4755),
                            engine_lab:age(From),
                            {file, Seen} = engine_file:look(From),
                            {From, Seen, Temp, To}
                        end || {Name, Content} <- Contents],
                Results = copied(Aged),
                if_native(Results, fun() ->
                    [begin
                         ?assertEqual({ok, Content, element(2, engine_file:look(To))}, Result),
                         ?assertEqual(Content, read(To)),
                         ?assertNot(engine_lab:exists(Temp)),
                         {ok, #file_info{mode = Mode, mtime = MTime}} = file:read_file_info(To),
                         ?assertEqual(8#755, Mode band 8#7777),
                         ?assertEqual(MTime, filelib:last_modified(From))
                     end || {{_, Content}, {From, _, Temp, To}, Result} <- lists:zip3(Contents, Aged, Results)]
                end)
        end).

readOnlyFileIsReadOnlyThereToo_test() ->
    lab(fun(Lab) ->
                {From, _, Temp, To} = file(Lab, <<"f">>, <<"1">>),
                ok = file:change_mode(From, 8#444),
                {file, Seen} = engine_file:look(From),
                if_native(copied([{From, Seen, Temp, To}]), fun() ->
                    {ok, #file_info{mode = Mode}} = file:read_file_info(To),
                    ?assertEqual(8#444, Mode band 8#777)
                end)
        end).

givesUpWithoutATrace_test_() ->
    [{Name, fun() ->
                    lab(fun(Lab) ->
                                {From, Seen, Temp, To} = file(Lab, <<"f">>, <<"content">>),
                                Change(Lab, From, To),
                                Results = copied([{From, Seen, Temp, To}, file(Lab, <<"other">>, <<"1">>)]),
                                if_native(Results, fun() ->
                                    ?assertMatch([{error, Reason}, {ok, <<"1">>, _}], Results),
                                    ?assertNot(engine_lab:exists(Temp)),
                                    ?assertEqual(Left, read(To))
                                end)
                        end)
            end}
     || {Name, Change, Reason, Left} <-
            [{"source grew", fun(_, From, _) -> write(From, <<"content and more">>) end, changed, enoent},
             {"source was replaced by the same",
              fun(Lab, From, _) -> write(Lab, <<"x">>, <<"content">>), ok = file:rename(in(Lab, <<"x">>), From) end,
              changed, enoent},
             {"source was touched", fun(_, From, _) -> engine_lab:age(From) end, changed, enoent},
             {"source is gone", fun(_, From, _) -> ok = file:delete(From) end, enoent, enoent},
             {"source became a link",
              fun(Lab, From, _) ->
                      ok = file:rename(From, in(Lab, <<"x">>)),
                      ok = file:make_symlink("x", From)
              end, eloop, enoent},
             {"name is taken", fun(_, _, To) -> write(To, <<"theirs">>) end, changed, <<"theirs">>},
             {"name is a directory", fun(_, _, To) -> ok = file:make_dir(To) end, changed, eisdir}]].

write(Path, Bytes) -> engine_lab:write(Path, Bytes).

temporaryNameThatIsTakenIsLeftAlone_test() ->
    lab(fun(Lab) ->
                {_, _, Temp, To} = File = file(Lab, <<"f">>, <<"content">>),
                write(Temp, <<"theirs">>),
                Results = copied([File]),
                if_native(Results, fun() ->
                    ?assertEqual([{error, eexist}], Results),
                    ?assertEqual(<<"theirs">>, read(Temp)),
                    ?assertEqual(enoent, read(To))
                end)
        end).
