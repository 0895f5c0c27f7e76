%% JSON for the link with the client and for the roots file.
%%
%% Objects are maps with binary keys, texts are UTF-8 binaries, null is the
%% atom null. The input is never trusted: the nesting is bounded and anything
%% that is not a JSON text makes decode/1 return error.
-module(engine_json).

-export([decode/1, encode/1]).

-export_type([value/0]).

-define(MAX_DEPTH, 64).
-define(REPLACEMENT, 16#FFFD).

-type value() :: null | boolean() | number() | binary() | [value()]
               | #{binary() => value()}.

-spec decode(binary()) -> {ok, value()} | error.
decode(Bytes) when is_binary(Bytes) ->
    try
        {Value, Rest} = value(skip(Bytes), ?MAX_DEPTH),
        <<>> = skip(Rest),
        {ok, Value}
    catch
        error:_ -> error;
        throw:bad_json -> error
    end.

value(_, 0) -> throw(bad_json);
value(<<"{", Rest/binary>>, Depth) -> object(skip(Rest), Depth - 1);
value(<<"[", Rest/binary>>, Depth) -> array(skip(Rest), Depth - 1);
value(<<"\"", Rest/binary>>, _) -> string(Rest);
value(<<"true", Rest/binary>>, _) -> {true, Rest};
value(<<"false", Rest/binary>>, _) -> {false, Rest};
value(<<"null", Rest/binary>>, _) -> {null, Rest};
value(Bytes, _) -> number(Bytes).

object(<<"}", Rest/binary>>, _) -> {#{}, Rest};
object(Bytes, Depth) -> members(Bytes, Depth, #{}).

members(<<"\"", Bytes/binary>>, Depth, Members) ->
    {Key, AfterKey} = string(Bytes),
    <<":", AfterColon/binary>> = skip(AfterKey),
    {Value, AfterValue} = value(skip(AfterColon), Depth),
    case skip(AfterValue) of
        <<",", Rest/binary>> ->
            members(skip(Rest), Depth, Members#{Key => Value});
        <<"}", Rest/binary>> ->
            {Members#{Key => Value}, Rest}
    end.

array(<<"]", Rest/binary>>, _) -> {[], Rest};
array(Bytes, Depth) -> elements(Bytes, Depth, []).

elements(Bytes, Depth, Elements) ->
    {Value, AfterValue} = value(Bytes, Depth),
    case skip(AfterValue) of
        <<",", Rest/binary>> -> elements(skip(Rest), Depth, [Value | Elements]);
        <<"]", Rest/binary>> -> {lists:reverse(Elements, [Value]), Rest}
    end.

%% The client escapes only what it must, so control characters may stand raw
%% inside a text. Runs without an escape are taken as one piece.
string(Bytes) -> string(Bytes, 0, Bytes, []).

string(Bytes, Length, Start, Pieces) ->
    case Bytes of
        <<"\"", Rest/binary>> ->
            Text = iolist_to_binary(lists:reverse(Pieces, [run(Start, Length)])),
            Text = unicode:characters_to_binary(Text),
            {Text, Rest};
        <<"\\", Rest/binary>> ->
            {Piece, AfterEscape} = escape(Rest),
            string(AfterEscape, 0, AfterEscape, [Piece, run(Start, Length) | Pieces]);
        <<_, Rest/binary>> ->
            string(Rest, Length + 1, Start, Pieces)
    end.

run(Start, Length) -> binary:part(Start, 0, Length).

escape(<<"u", Hex:4/binary, Rest/binary>>) ->
    case {code_unit(Hex), Rest} of
        {High, <<"\\u", LowHex:4/binary, AfterLow/binary>>}
          when High >= 16#D800, High =< 16#DBFF ->
            case code_unit(LowHex) of
                Low when Low >= 16#DC00, Low =< 16#DFFF ->
                    Code = 16#10000 + ((High - 16#D800) bsl 10) + (Low - 16#DC00),
                    {<<Code/utf8>>, AfterLow};
                _ ->
                    {<<?REPLACEMENT/utf8>>, Rest}
            end;
        {Unit, _} when Unit >= 16#D800, Unit =< 16#DFFF ->
            {<<?REPLACEMENT/utf8>>, Rest};
        {Unit, _} ->
            {<<Unit/utf8>>, Rest}
    end;
escape(<<Char, Rest/binary>>) -> {plain_escape(Char), Rest}.

plain_escape($") -> <<"\"">>;
plain_escape($\\) -> <<"\\">>;
plain_escape($/) -> <<"/">>;
plain_escape($b) -> <<"\b">>;
plain_escape($f) -> <<"\f">>;
plain_escape($n) -> <<"\n">>;
plain_escape($r) -> <<"\r">>;
plain_escape($t) -> <<"\t">>.

code_unit(Hex) ->
    true = lists:all(fun is_hex/1, binary_to_list(Hex)),
    binary_to_integer(Hex, 16).

is_hex(C) -> (C >= $0 andalso C =< $9) orelse (C >= $a andalso C =< $f)
                 orelse (C >= $A andalso C =< $F).

number(Bytes) ->
    Pattern = "^-?(0|[1-9][0-9]{0,30})(\\.[0-9]{1,30})?([eE][+-]?[0-9]{1,4})?",
    {match, [{0, Length} | Groups]} = re:run(Bytes, Pattern),
    <<Text:Length/binary, Rest/binary>> = Bytes,
    {to_number(Text, Groups), Rest}.

to_number(Text, [_]) -> binary_to_integer(Text);
to_number(Text, [_, {_, Fraction} | _]) when Fraction > 0 -> binary_to_float(Text);
to_number(Text, _) ->
    %% An exponent without a fraction is no float in this language.
    binary_to_float(re:replace(Text, "[eE]", ".0e", [{return, binary}])).

skip(<<C, Rest/binary>>) when C =:= $\s; C =:= $\t; C =:= $\r; C =:= $\n -> skip(Rest);
skip(Bytes) -> Bytes.

%% The text of a value, ASCII only: the client reads its input as Latin-1.
-spec encode(value()) -> iolist().
encode(null) -> "null";
encode(true) -> "true";
encode(false) -> "false";
encode(Number) when is_integer(Number) -> integer_to_list(Number);
encode(Number) when is_float(Number) -> io_lib:format("~p", [Number]);
encode(Text) when is_binary(Text) -> [$", text(Text), $"];
encode(Values) when is_list(Values) ->
    [$[, lists:join($,, [encode(Value) || Value <- Values]), $]];
encode(Members) when is_map(Members) ->
    Pairs = [[encode(Key), $:, encode(Value)]
             || {Key, Value} <- lists:sort(maps:to_list(Members))],
    [${, lists:join($,, Pairs), $}].

text(<<C/utf8, Rest/binary>>) -> [char(C) | text(Rest)];
text(<<_, Rest/binary>>) -> [char(?REPLACEMENT) | text(Rest)];
text(<<>>) -> [].

char($") -> "\\\"";
char($\\) -> "\\\\";
char($\n) -> "\\n";
char($\r) -> "\\r";
char($\t) -> "\\t";
char(C) when C >= $\s, C < 127 -> C;
char(C) when C < 16#10000 -> unit(C);
char(C) ->
    Offset = C - 16#10000,
    [unit(16#D800 + (Offset bsr 10)), unit(16#DC00 + (Offset band 16#3FF))].

unit(Unit) -> io_lib:format("\\u~4.16.0b", [Unit]).
