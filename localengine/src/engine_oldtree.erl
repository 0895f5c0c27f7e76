%% The trees of earlier versions: one line an item, and a last line that counts
%% them, so that a file which was cut short is seen as such and is forgotten as
%% a whole.
-module(engine_oldtree).

-export([read/2]).

-type fact() :: {facts, Next :: pos_integer(), {binary(), binary()}}
              | {known, binary(), Id :: pos_integer(), engine_tree:base() | none}.

%% Gives nothing to Tell unless the whole text is sound.
-spec read(binary(), fun((fact()) -> term())) -> ok | damaged.
read(Text, Tell) ->
    try
        [Head | Lines] = binary:split(Text, <<"\n">>, [global, trim]),
        [<<"orvel-tree">>, <<"1">>, Next, Local, Cloud] = words(Head),
        [Last | Items] = lists:reverse(Lines),
        [<<"end">>, Count] = words(Last),
        true = binary_to_integer(Count) =:= length(Items),
        Known = lists:sort([item(Line) || Line <- Items]),
        Tell({facts, binary_to_integer(Next), {unquote(Local), unquote(Cloud)}}),
        %% Sorted, a directory comes before what is in it.
        [Tell({known, Path, Id, Base}) || {Path, Id, Base} <- Known],
        ok
    catch
        error:_ -> damaged
    end.

words(Line) -> binary:split(Line, <<" ">>, [global]).

item(Line) ->
    case words(Line) of
        [Id, <<"-">>, Path] -> {unquote(Path), binary_to_integer(Id), none};
        [Id, Kind, Path, Hash | Numbers] ->
            [S1, M1, C1, I1, N1, S2, M2, C2, I2, N2] = [binary_to_integer(N) || N <- Numbers],
            {unquote(Path), binary_to_integer(Id),
             #{kind => kind(Kind), hash => binary:decode_hex(unquote(Hash)),
               local => {{S1, M1, C1, I1}, N1}, cloud => {{S2, M2, C2, I2}, N2}}}
    end.

kind(<<"file">>) -> file;
kind(<<"dir">>) -> dir.

unquote(<<"%">>) -> <<>>;
unquote(Word) -> iolist_to_binary(unquote_bytes(Word)).

unquote_bytes(<<$%, Hex:2/binary, Rest/binary>>) ->
    [binary:decode_hex(Hex) | unquote_bytes(Rest)];
unquote_bytes(<<B, Rest/binary>>) -> [B | unquote_bytes(Rest)];
unquote_bytes(<<>>) -> [].
