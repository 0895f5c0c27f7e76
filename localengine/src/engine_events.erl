%% The messages that the client understands.
-module(engine_events).

-export([network_state/3, roots_changed/0, space_used/3, login_ids/1,
         query_result/2, share_result/3, port_state/4, exit/0]).

-type event() :: #{binary() => engine_json:value()}.
-type figures() :: #{uploads := non_neg_integer(), downloads := non_neg_integer(),
                     bps := non_neg_integer(), timerem := non_neg_integer()}.

-spec network_state(ok | offline | transferring | logout, non_neg_integer(), figures()) ->
          event().
network_state(State, Uid, #{uploads := Uploads, downloads := Downloads, bps := Bps,
                            timerem := Seconds}) ->
    event(<<"networkstate">>,
          #{<<"state">> => atom_to_binary(State), <<"uid">> => Uid,
            <<"uploads">> => Uploads, <<"downloads">> => Downloads,
            <<"bps">> => Bps, <<"timerem">> => Seconds}).

-spec roots_changed() -> event().
roots_changed() -> event(<<"rootschanged">>, #{}).

-spec space_used(non_neg_integer(), non_neg_integer(), binary()) -> event().
space_used(Space, Quota, Package) ->
    event(<<"spaceused">>,
          #{<<"space">> => Space, <<"quota">> => Quota, <<"package">> => Package}).

-spec login_ids([pos_integer()]) -> event().
login_ids(Uids) ->
    event(<<"loginids">>, #{<<"ids">> => [integer_to_binary(Uid) || Uid <- Uids]}).

-spec query_result(binary(), [pos_integer()]) -> event().
query_result(What, Ids) ->
    event(<<"queryresult">>, #{<<"cmd">> => What, <<"idpath">> => Ids}).

-spec share_result(integer(), boolean(), integer()) -> event().
share_result(MessageId, Success, Code) ->
    event(<<"sharefolderresult">>,
          #{<<"msgid">> => MessageId, <<"success">> => Success, <<"msg">> => Code}).

-spec port_state([binary()], boolean(), boolean(), integer()) -> event().
port_state(Pins, Upnp, Works, Time) ->
    event(<<"state">>, #{<<"pin">> => Pins, <<"upnp">> => Upnp,
                         <<"portworks">> => Works, <<"porttime">> => Time}).

-spec exit() -> event().
exit() -> event(<<"exit">>, #{}).

event(What, Members) -> Members#{<<"what">> => What}.
