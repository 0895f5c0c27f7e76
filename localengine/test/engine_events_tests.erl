%% The words and members that the client reads.
-module(engine_events_tests).

-include_lib("eunit/include/eunit.hrl").

line(Event) -> engine_link:message(Event).

everyMessageIsOneLine_test_() ->
    Idle = #{uploads => 1, downloads => 2, bps => 3, timerem => 4},
    [?_assertEqual(<<Expected/binary, "\n">>, line(Event))
     || {Event, Expected} <-
            [{engine_events:network_state(transferring, 9, Idle),
              <<"{\"bps\":3,\"downloads\":2,\"state\":\"transferring\",\"timerem\":4,\"uid\":9,"
                "\"uploads\":1,\"what\":\"networkstate\"}">>},
             {engine_events:roots_changed(), <<"{\"what\":\"rootschanged\"}">>},
             {engine_events:space_used(1, 2, <<"P">>),
              <<"{\"package\":\"P\",\"quota\":2,\"space\":1,\"what\":\"spaceused\"}">>},
             {engine_events:login_ids([2001, 2002]),
              <<"{\"ids\":[\"2001\",\"2002\"],\"what\":\"loginids\"}">>},
             {engine_events:query_result(<<"a\nč"/utf8>>, [1, 5]),
              <<"{\"cmd\":\"a\\n\\u010d\",\"idpath\":[1,5],\"what\":\"queryresult\"}">>},
             {engine_events:share_result(3, false, 2),
              <<"{\"msg\":2,\"msgid\":3,\"success\":false,\"what\":\"sharefolderresult\"}">>},
             {engine_events:port_state([], false, true, 7),
              <<"{\"pin\":[],\"porttime\":7,\"portworks\":true,\"upnp\":false,"
                "\"what\":\"state\"}">>},
             {engine_events:exit(), <<"{\"what\":\"exit\"}">>}]].
