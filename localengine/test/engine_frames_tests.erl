-module(engine_frames_tests).

-include_lib("eunit/include/eunit.hrl").

feed(Chunks, Frames) ->
    lists:foldl(fun(Chunk, {Found, F}) ->
                        {Messages, Next} = engine_frames:push(Chunk, F),
                        {Found ++ Messages, Next}
                end, {[], Frames}, Chunks).

messages(Chunks) -> element(1, feed(Chunks, engine_frames:new())).

everyCutGivesTheSameMessages_test() ->
    Bytes = <<"\njson{\"a\":1}\n\njson{\"b\":2}\n">>,
    Expected = [#{<<"a">> => 1}, #{<<"b">> => 2}],
    [?assertEqual(Expected, messages([binary:part(Bytes, 0, N),
                                      binary:part(Bytes, N, byte_size(Bytes) - N)]))
     || N <- lists:seq(0, byte_size(Bytes))],
    ?assertEqual(Expected, messages([<<B>> || <<B>> <= Bytes])).

nothingIsGivenBeforeTheLineEnds_test() ->
    ?assertEqual([], messages([<<"json{}">>])),
    ?assertEqual([#{}], messages([<<"json{}">>, <<"\n">>])).

noiseIsPassedOver_test() ->
    ?assertEqual([#{}], messages([<<"x\njson\njson{\n{}\njsonjson{}\njson{}\r\n">>])).

tooLongLineIsDroppedAndTheNextOneRead_test() ->
    Long = binary:copy(<<"x">>, 60),
    {Found, _} = feed([<<"json\"">>, Long, Long, <<"\"\njson{}\n">>], engine_frames:new(100)),
    ?assertEqual([#{}], Found).
