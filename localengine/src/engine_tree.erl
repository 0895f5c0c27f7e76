%% What both sides held when they last agreed, per account, with the numeric
%% id of every item. It is what tells "deleted here" from "new there".
%%
%% Losing the tree is harmless: without it the two sides are merged. For the
%% same reason each tree names the two roots that it was made from (by the
%% tokens in their marker files) and is not believed for others.
-module(engine_tree).

-export([new/0, load/1, save/2, file_name/2, get/2, nodes/1, change/2,
         id_path/2, tokens/1, to_text/1, from_text/1]).

-export_type([tree/0, base/0, delta/0]).

-define(ROOT_ID, 1).

-type mark() :: {engine_file:sig(), Seen :: integer()}.
%% What a path was: the sides' marks, and the content's hash for a file.
-type base() :: #{kind := file | dir, hash := binary(),
                  local := mark(), cloud := mark()}.
-type delta() :: {bind, {Local :: binary(), Cloud :: binary()}}
               | {put, binary(), base()} | {drop, binary()}
               | {move, binary(), binary()}.
-opaque tree() :: #{next := pos_integer(),
                    tokens := {binary(), binary()},
                    ids := #{binary() => pos_integer()},
                    nodes := #{binary() => base()}}.

-spec new() -> tree().
new() -> #{next => ?ROOT_ID + 1, tokens => {<<>>, <<>>}, ids => #{}, nodes => #{}}.

-spec get(binary(), tree()) -> base() | none.
get(Path, #{nodes := Nodes}) -> maps:get(Path, Nodes, none).

-spec nodes(tree()) -> #{binary() => base()}.
nodes(#{nodes := Nodes}) -> Nodes.

-spec change(delta(), tree()) -> tree().
change({bind, Tokens}, #{tokens := Tokens} = Tree) -> Tree;
%% Another pair of roots than before makes everything known about their
%% contents worthless; the ids live on.
change({bind, Tokens}, Tree) -> Tree#{tokens := Tokens, nodes := #{}};
change({put, Path, Base}, #{next := Next, ids := Ids, nodes := Nodes} = Tree) ->
    Known = Tree#{nodes := Nodes#{Path => Base}},
    case Ids of
        #{Path := _} -> Known;
        _ -> Known#{ids := Ids#{Path => Next}, next := Next + 1}
    end;
change({drop, Path}, #{ids := Ids, nodes := Nodes} = Tree) ->
    Tree#{ids := maps:remove(Path, Ids), nodes := maps:remove(Path, Nodes)};
%% A renamed item keeps its id, and so does everything below it.
change({move, From, To}, #{ids := Ids, nodes := Nodes} = Tree) ->
    case Nodes of
        #{From := #{kind := file}} ->
            Tree#{ids := rekey(From, To, Ids), nodes := rekey(From, To, Nodes)};
        _ ->
            Tree#{ids := engine_path:move_keys(From, To, Ids),
                  nodes := engine_path:move_keys(From, To, Nodes)}
    end.

rekey(From, To, Map) ->
    case maps:take(From, Map) of
        {Value, Rest} -> Rest#{To => Value};
        error -> Map
    end.

%% The ids from the root down to the item; empty for an unknown path.
-spec id_path(binary(), tree()) -> [pos_integer()].
id_path(Path, #{ids := Ids, nodes := Nodes}) ->
    Chain = engine_path:ancestors(Path) ++ [Path || Path =/= <<>>],
    case lists:all(fun(P) -> is_map_key(P, Nodes) andalso is_map_key(P, Ids) end, Chain) of
        true -> [?ROOT_ID | [maps:get(P, Ids) || P <- Chain]];
        false -> []
    end.

-spec tokens(tree()) -> {Local :: binary(), Cloud :: binary()}.
tokens(#{tokens := Tokens}) -> Tokens.

-spec file_name(binary(), pos_integer()) -> binary().
file_name(StateDir, Uid) ->
    <<StateDir/binary, "/", (integer_to_binary(Uid))/binary, ".tree">>.

-spec load(binary()) -> tree().
load(Path) ->
    case engine_file:read(Path) of
        {ok, Text} -> from_text(Text);
        {error, _} -> new()
    end.

-spec save(binary(), tree()) -> ok | {error, atom()}.
save(Path, Tree) -> engine_file:write_atomic(Path, to_text(Tree), 8#600).

%% One line an item; the last line counts them, so that a file which was cut
%% short is seen as such and forgotten as a whole.
-spec to_text(tree()) -> iolist().
to_text(#{next := Next, tokens := {Local, Cloud}, ids := Ids, nodes := Nodes}) ->
    Lines = [line(Path, Id, maps:get(Path, Nodes, none)) || {Path, Id} <- maps:to_list(Ids)],
    [io_lib:format("orvel-tree 1 ~b ~s ~s~n", [Next, quote(Local), quote(Cloud)]),
     Lines, io_lib:format("end ~b~n", [length(Lines)])].

line(Path, Id, none) ->
    [integer_to_binary(Id), " - ", quote(Path), $\n];
line(Path, Id, #{kind := Kind, hash := Hash, local := Local, cloud := Cloud}) ->
    Numbers = [[$\s, integer_to_binary(N)] || N <- numbers(Local) ++ numbers(Cloud)],
    [integer_to_binary(Id), $\s, atom_to_binary(Kind), $\s, quote(Path), $\s,
     quote(binary:encode_hex(Hash)), Numbers, $\n].

numbers({{Size, MTime, CTime, Inode}, Seen}) -> [Size, MTime, CTime, Inode, Seen].

-spec from_text(binary()) -> tree().
from_text(Text) ->
    try
        [Head | Lines] = binary:split(Text, <<"\n">>, [global, trim]),
        [<<"orvel-tree">>, <<"1">>, Next, Local, Cloud] = words(Head),
        [Last | Items] = lists:reverse(Lines),
        [<<"end">>, Count] = words(Last),
        true = binary_to_integer(Count) =:= length(Items),
        Empty = #{next => binary_to_integer(Next),
                  tokens => {unquote(Local), unquote(Cloud)}, ids => #{}, nodes => #{}},
        lists:foldl(fun add_line/2, Empty, Items)
    catch
        error:_ -> new()
    end.

words(Line) -> binary:split(Line, <<" ">>, [global]).

add_line(Line, #{ids := Ids, nodes := Nodes} = Tree) ->
    case words(Line) of
        [Id, <<"-">>, Path] ->
            Tree#{ids := Ids#{unquote(Path) => binary_to_integer(Id)}};
        [Id, Kind, Path, Hash | Numbers] ->
            [S1, M1, C1, I1, N1, S2, M2, C2, I2, N2] =
                [binary_to_integer(N) || N <- Numbers],
            Base = #{kind => kind(Kind), hash => binary:decode_hex(unquote(Hash)),
                     local => {{S1, M1, C1, I1}, N1}, cloud => {{S2, M2, C2, I2}, N2}},
            Tree#{ids := Ids#{unquote(Path) => binary_to_integer(Id)},
                  nodes := Nodes#{unquote(Path) => Base}}
    end.

kind(<<"file">>) -> file;
kind(<<"dir">>) -> dir.

%% No blank and no line break in a word, and no empty word.
quote(<<>>) -> <<"%">>;
quote(Bytes) -> << <<(quote_byte(B))/binary>> || <<B>> <= Bytes >>.

quote_byte(B) when B =< $\s; B =:= $%; B =:= 127 ->
    <<$%, (binary:encode_hex(<<B>>))/binary>>;
quote_byte(B) -> <<B>>.

unquote(<<"%">>) -> <<>>;
unquote(Word) -> iolist_to_binary(unquote_bytes(Word)).

unquote_bytes(<<$%, Hex:2/binary, Rest/binary>>) ->
    [binary:decode_hex(Hex) | unquote_bytes(Rest)];
unquote_bytes(<<B, Rest/binary>>) -> [B | unquote_bytes(Rest)];
unquote_bytes(<<>>) -> [].
