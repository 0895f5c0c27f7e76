-module(engine_json_tests).

-include_lib("eunit/include/eunit.hrl").

-define(decode(Text), engine_json:decode(Text)).

text(Value) -> iolist_to_binary(engine_json:encode(Value)).

readsEveryKindOfValue_test() ->
    ?assertEqual({ok, #{<<"a">> => [1, -2, 1.5, 2.0e3, 0.015, true, false, null, [], #{}]}},
                 ?decode(<<" {\"a\" : [ 1, -2,1.5, 2e3, 1.5E-2, true,false,null,[  ],{ }] }\r\n">>)).

joinsSurrogatePairs_test() ->
    ?assertEqual({ok, <<"é😀\n\""/utf8>>}, ?decode(<<"\"\\u00e9\\uD83D\\ude00\\n\\\"\"">>)).

loneSurrogateBecomesReplacement_test() ->
    ?assertEqual({ok, <<16#FFFD/utf8, "x">>}, ?decode(<<"\"\\ud800x\"">>)),
    ?assertEqual({ok, <<16#FFFD/utf8, "A">>}, ?decode(<<"\"\\ud800\\u0041\"">>)).

rawControlCharactersAndUtf8Pass_test() ->
    ?assertEqual({ok, <<"a\tb\x{01}ž"/utf8>>}, ?decode(<<"\"a\tb\x{01}ž\""/utf8>>)).

lastOfTwoEqualKeysWins_test() ->
    ?assertEqual({ok, #{<<"a">> => 2}}, ?decode(<<"{\"a\":1,\"a\":2}">>)).

rejects_test_() ->
    [{Text, ?_assertEqual(error, ?decode(Text))}
     || Text <- [<<>>, <<"{">>, <<"[1,">>, <<"[1 2]">>, <<"\"abc">>, <<"{\"a\" 1}">>, <<"nul">>,
                 <<"01">>, <<"1.">>, <<"-">>, <<"1e9999">>, <<"\"\\x\"">>, <<"\"\\u12g4\"">>,
                 <<"\"\\u00\"">>, <<"{} {}">>, <<"\"", 16#FF, "\"">>, <<0>>]].

deepNestingIsRefusedQuickly_test() ->
    ?assertEqual(error, ?decode(binary:copy(<<"[">>, 1000000))),
    ?assertEqual(error, ?decode(binary:copy(<<"{\"a\":">>, 1000000))),
    Fine = <<(binary:copy(<<"[">>, 50))/binary, (binary:copy(<<"]">>, 50))/binary>>,
    ?assertMatch({ok, _}, ?decode(Fine)).

writesAsciiOnly_test() ->
    Text = text(#{<<"naïve"/utf8>> => [<<"😀\"\\\n\x{7f}"/utf8>>, 1, -5, true, null]}),
    ?assertEqual(<<"{\"na\\u00efve\":[\"\\ud83d\\ude00\\\"\\\\\\n\\u007f\",1,-5,true,null]}">>,
                 Text).

bytesThatAreNoUtf8BecomeReplacements_test() ->
    ?assertEqual(<<"\"a\\ufffdb\"">>, text(<<"a", 16#FF, "b">>)).

whatIsWrittenReadsBack_test() ->
    Value = #{<<"x">> => [<<"č/\t\r\b"/utf8>>, 12345678901234567890, 0.1, #{<<>> => []}]},
    ?assertEqual({ok, Value}, ?decode(text(Value))).
