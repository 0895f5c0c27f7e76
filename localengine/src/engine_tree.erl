%% What both sides held when they last agreed, per account, with the numeric
%% id of every item. It is what tells "deleted here" from "new there".
%%
%% Losing the tree is harmless: without it the two sides are merged. For the
%% same reason each tree names the two roots that it was made from (by the
%% tokens in their marker files) and is not believed for others.
%%
%% A tree is a table that any process may read; only the process that made it
%% may change it. An item is found under its directory's id and its name, so a
%% directory that is renamed takes everything below it along.
-module(engine_tree).

-export([new/0, load/1, save/3, file_name/2, delete/1, get/2, children/2, below/2, change/2,
         id_path/2, tokens/1, space/1]).

-export_type([tree/0, base/0, delta/0]).

-define(ROOT_ID, 1).
-define(ROWS_A_FRAME, 1000).

-type mark() :: {engine_file:sig(), Seen :: integer()}.
%% What a path was: the sides' marks, and the content's hash for a file.
-type base() :: #{kind := file | dir, hash := binary(),
                  local := mark(), cloud := mark()}.
-type delta() :: {bind, {Local :: binary(), Cloud :: binary()}}
               | {put, binary(), base()} | {drop, binary()}
               | {move, binary(), binary()}.
-opaque tree() :: ets:tid().

%% The kind is "none" where only the id is known. One flat row takes less than
%% half the memory of a map of maps.
-record(item, {key :: {Dir :: pos_integer(), Name :: binary()} | '_', id :: pos_integer() | '_',
               kind :: file | dir | none | '_', hash = <<>> :: binary() | '_',
               local_size = 0, local_mtime = 0, local_ctime = 0, local_inode = 0, local_seen = 0,
               cloud_size = 0, cloud_mtime = 0, cloud_ctime = 0, cloud_inode = 0, cloud_seen = 0}).

-spec new() -> tree().
new() ->
    %% Ordered, so that the items of one directory stand together.
    Tree = ets:new(tree, [ordered_set, protected, {keypos, #item.key}, {read_concurrency, true}]),
    set(next, ?ROOT_ID + 1, Tree),
    set(tokens, {<<>>, <<>>}, Tree),
    set(sound, false, Tree),
    set(space, 0, Tree),
    Tree.

-spec delete(tree()) -> true.
delete(Tree) -> ets:delete(Tree).

set(Key, Value, Tree) -> ets:insert(Tree, {fact, Key, Value}).

fact(Key, Tree) -> ets:lookup_element(Tree, Key, 3).

%% ---- Reading ---------------------------------------------------------------

-spec get(binary(), tree()) -> base() | none.
get(Path, Tree) ->
    case find(Path, Tree) of
        #item{kind = Kind} = Item when Kind =/= none -> base(Item);
        _ -> none
    end.

%% The items of one directory, by name.
-spec children(binary(), tree()) -> [{Name :: binary(), base()}].
children(Dir, Tree) ->
    case id(Dir, Tree) of
        none -> [];
        Id -> [{Name, base(Item)} || #item{key = {_, Name}, kind = Kind} = Item <- items(Id, Tree), Kind =/= none]
    end.

%% Everything below a directory, by path.
-spec below(binary(), tree()) -> [{Path :: binary(), base()}].
below(Dir, Tree) ->
    case id(Dir, Tree) of
        none -> [];
        Id -> below(Dir, Id, Tree, [])
    end.

below(Dir, Id, Tree, Found) ->
    lists:foldl(fun(#item{key = {_, Name}, id = Child, kind = Kind} = Item, Acc) ->
                        Path = engine_path:child(Dir, Name),
                        case Kind of
                            file -> [{Path, base(Item)} | Acc];
                            dir -> below(Path, Child, Tree, [{Path, base(Item)} | Acc]);
                            none -> below(Path, Child, Tree, Acc)
                        end
                end, Found, items(Id, Tree)).

%% The ids from the root down to the item; empty for an unknown path.
-spec id_path(binary(), tree()) -> [pos_integer()].
id_path(Path, Tree) -> id_path(names(Path), ?ROOT_ID, Tree, [?ROOT_ID]).

id_path([], _, _, Ids) -> lists:reverse(Ids);
id_path([Name | Names], Dir, Tree, Ids) ->
    case ets:lookup(Tree, {Dir, Name}) of
        [#item{id = Id, kind = Kind}] when Kind =/= none -> id_path(Names, Id, Tree, [Id | Ids]);
        _ -> []
    end.

-spec tokens(tree()) -> {Local :: binary(), Cloud :: binary()}.
tokens(Tree) -> fact(tokens, Tree).

%% The bytes of all files on the cloud's side.
-spec space(tree()) -> non_neg_integer().
space(Tree) -> fact(space, Tree).

names(<<>>) -> [];
names(Path) -> binary:split(Path, <<"/">>, [global]).

id(Path, Tree) -> id(names(Path), ?ROOT_ID, Tree).

id([], Id, _) -> Id;
id([Name | Names], Dir, Tree) ->
    case ets:lookup(Tree, {Dir, Name}) of
        [#item{id = Id}] -> id(Names, Id, Tree);
        [] -> none
    end.

find(<<>>, _) -> none;
find(Path, Tree) ->
    case id(engine_path:parent(Path), Tree) of
        none -> none;
        Dir ->
            case ets:lookup(Tree, {Dir, engine_path:name(Path)}) of
                [Item] -> Item;
                [] -> none
            end
    end.

items(Dir, Tree) -> ets:match_object(Tree, #item{key = {Dir, '_'}, id = '_', kind = '_', hash = '_',
                                                 local_size = '_', local_mtime = '_', local_ctime = '_',
                                                 local_inode = '_', local_seen = '_', cloud_size = '_',
                                                 cloud_mtime = '_', cloud_ctime = '_', cloud_inode = '_',
                                                 cloud_seen = '_'}).

base(#item{kind = Kind, hash = Hash, local_size = S1, local_mtime = M1, local_ctime = C1, local_inode = I1,
           local_seen = N1, cloud_size = S2, cloud_mtime = M2, cloud_ctime = C2, cloud_inode = I2,
           cloud_seen = N2}) ->
    #{kind => Kind, hash => Hash, local => {{S1, M1, C1, I1}, N1}, cloud => {{S2, M2, C2, I2}, N2}}.

item(Key, Id, #{kind := Kind, hash := Hash, local := {{S1, M1, C1, I1}, N1}, cloud := {{S2, M2, C2, I2}, N2}}) ->
    #item{key = Key, id = Id, kind = Kind, hash = Hash, local_size = S1, local_mtime = M1, local_ctime = C1,
          local_inode = I1, local_seen = N1, cloud_size = S2, cloud_mtime = M2, cloud_ctime = C2,
          cloud_inode = I2, cloud_seen = N2}.

%% ---- Changing --------------------------------------------------------------

-spec change(delta(), tree()) -> tree().
change(Delta, Tree) ->
    _ = apply_change(Delta, Tree),
    Tree.

%% Another pair of roots than before makes everything known about their
%% contents worthless; the ids live on.
apply_change({bind, Tokens}, Tree) ->
    case tokens(Tree) of
        Tokens -> true;
        _ ->
            Known = [Item || #item{} = Item <- ets:tab2list(Tree)],
            ets:insert(Tree, [#item{key = Item#item.key, id = Item#item.id, kind = none} || Item <- Known]),
            set(space, 0, Tree),
            set(tokens, Tokens, Tree)
    end;
apply_change({put, Path, Base}, Tree) ->
    Key = {make_dir(engine_path:parent(Path), Tree), engine_path:name(Path)},
    case ets:lookup(Tree, Key) of
        [#item{id = Id} = Before] -> put_item(item(Key, Id, Base), Before#item.cloud_size, Tree);
        [] -> put_item(item(Key, next_id(Tree), Base), 0, Tree)
    end;
apply_change({drop, Path}, Tree) ->
    case find(Path, Tree) of
        none -> true;
        Item -> remove(Item, Tree)
    end;
%% A renamed item keeps its id, and so does everything below it.
apply_change({move, From, To}, Tree) ->
    case find(From, Tree) of
        none -> true;
        Item ->
            _ = apply_change({drop, To}, Tree),
            Key = {make_dir(engine_path:parent(To), Tree), engine_path:name(To)},
            ets:insert(Tree, Item#item{key = Key}),
            ets:delete(Tree, Item#item.key)
    end.

put_item(#item{cloud_size = Size} = Item, Before, Tree) ->
    grow(Size - Before, Tree),
    ets:insert(Tree, Item).

%% The size of a directory, and of what is not known, is none.
grow(Bytes, Tree) -> ets:update_counter(Tree, space, {3, Bytes}).

remove(#item{key = Key, id = Id, kind = Kind, cloud_size = Size}, Tree) ->
    _ = Kind =:= file orelse [remove(Item, Tree) || Item <- items(Id, Tree)],
    grow(-Size, Tree),
    ets:delete(Tree, Key).

%% The id of a directory; what is not known of it yet may come later.
make_dir(<<>>, _) -> ?ROOT_ID;
make_dir(Path, Tree) ->
    case id(Path, Tree) of
        none ->
            Key = {make_dir(engine_path:parent(Path), Tree), engine_path:name(Path)},
            Id = next_id(Tree),
            ets:insert(Tree, #item{key = Key, id = Id, kind = none}),
            Id;
        Id -> Id
    end.

next_id(Tree) ->
    Next = fact(next, Tree),
    set(next, Next + 1, Tree),
    Next.

%% ---- On disk ---------------------------------------------------------------

-spec file_name(binary(), pos_integer()) -> binary().
file_name(StateDir, Uid) ->
    <<StateDir/binary, "/", (integer_to_binary(Uid))/binary, ".tree">>.

-spec load(binary()) -> tree().
load(Path) ->
    Tree = new(),
    Read = engine_journal:read(Path, fun loaded/2, Tree),
    _ = case Read of
            {other, Text} -> engine_oldtree:read(Text, fun(Fact) -> loaded(Fact, Tree) end);
            _ -> ok
        end,
    set(sound, element(1, Read) =:= whole, Tree),
    Tree.

loaded({facts, Next, Tokens}, Tree) -> set(next, Next, Tree), set(tokens, Tokens, Tree), Tree;
loaded({rows, Rows}, Tree) ->
    grow(lists:sum([Size || #item{cloud_size = Size} <- Rows]), Tree),
    ets:insert(Tree, Rows),
    Tree;
loaded({deltas, Deltas}, Tree) -> lists:foldl(fun change/2, Tree, Deltas);
loaded({known, Path, Id, Base}, Tree) ->
    Key = {make_dir(engine_path:parent(Path), Tree), engine_path:name(Path)},
    _ = case Base of
            none -> ets:insert(Tree, #item{key = Key, id = Id, kind = none});
            _ -> put_item(item(Key, Id, Base), 0, Tree)
        end,
    Tree.

%% Deltas are what was changed since the last time, in their order. The file
%% takes them in at its end; now and then it is written anew.
-spec save(binary(), [delta()], tree()) -> ok | {error, atom()}.
save(Path, Deltas, Tree) ->
    Whole = fun() -> frames(Tree) end,
    Saved = case fact(sound, Tree) of
                true -> engine_journal:append(Path, {deltas, Deltas}, Whole);
                false -> engine_journal:write(Path, Whole)
            end,
    %% What may end in half a frame is written anew the next time.
    set(sound, Saved =:= ok, Tree),
    Saved.

%% One frame after the other, so that the whole never stands in memory twice.
frames(Tree) -> {{facts, fact(next, Tree), tokens(Tree)}, fun() -> rows(ets:first(Tree), Tree) end}.

rows(First, Tree) ->
    case rows(First, ?ROWS_A_FRAME, Tree, []) of
        {[], _} -> done;
        {Rows, Next} -> {{rows, Rows}, fun() -> rows(Next, Tree) end}
    end.

rows('$end_of_table', _, _, Rows) -> {Rows, '$end_of_table'};
rows(Key, 0, _, Rows) -> {Rows, Key};
rows(Key, Left, Tree, Rows) when is_tuple(Key) ->
    rows(ets:next(Tree, Key), Left - 1, Tree, [hd(ets:lookup(Tree, Key)) | Rows]);
rows(Key, Left, Tree, Rows) -> rows(ets:next(Tree, Key), Left, Tree, Rows).
