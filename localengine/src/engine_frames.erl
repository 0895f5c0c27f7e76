%% Cuts the client's bytes into messages. Each stands on a line of its own
%% after the word "json"; everything else is noise and is passed over.
-module(engine_frames).

-export([new/0, new/1, push/2]).

-export_type([frames/0]).

-define(MAX_LINE, 64 * 1024 * 1024).

%% The pieces of the line that is not complete yet, last first, or "skip"
%% while a line that grew too long runs on.
-opaque frames() :: {Pieces :: [binary()] | skip, Size :: non_neg_integer(),
                     Max :: pos_integer()}.

-spec new() -> frames().
new() -> new(?MAX_LINE).

-spec new(pos_integer()) -> frames().
new(Max) -> {[], 0, Max}.

-spec push(binary(), frames()) -> {[engine_json:value()], frames()}.
push(Bytes, Frames) -> pieces(binary:split(Bytes, <<"\n">>, [global]), Frames, []).

pieces([Rest], Frames, Found) -> {lists:reverse(Found), add(Rest, Frames)};
pieces([Piece | More], Frames, Found) ->
    {Pieces, _, Max} = add(Piece, Frames),
    pieces(More, new(Max), message(Pieces) ++ Found).

add(_, {skip, Size, Max}) -> {skip, Size, Max};
add(Piece, {Pieces, Size, Max}) ->
    case Size + byte_size(Piece) of
        New when New > Max -> {skip, 0, Max};
        New -> {[Piece | Pieces], New, Max}
    end.

message(skip) -> [];
message(Pieces) ->
    case iolist_to_binary(lists:reverse(Pieces)) of
        <<"json", Text/binary>> ->
            case engine_json:decode(Text) of
                {ok, Value} -> [Value];
                error -> []
            end;
        _ -> []
    end.
