%% Compares the two sides with what they last had in common, directory by
%% directory, and says which directories need work. What is the same costs a
%% look and is kept nowhere, so a large tree needs no more memory than a small one.
-module(engine_survey).

-export([run/2, nearest/2, collect/4, collect_above/3, nothing_seen/0, size/1]).

-export_type([world/0, found/0, need/0]).

-type side() :: engine_plan:side().
%% Stuck is what could not be done, with what stood there then: it is no news
%% until that changes. Force asks to read at once what may have changed unseen.
-type world() :: #{local := binary(), cloud := binary(), tree := engine_tree:tree(),
                   stuck := #{binary() => {Local :: seen(), Cloud :: seen()}},
                   force := boolean(), _ => _}.
-type seen() :: engine_file:entry() | absent | unknown.
%% What a directory needs: on which sides something known is missing or something
%% unknown is there, and about how many files and bytes are to be copied.
-type need() :: #{gone := [side()], new := [side()], cloud := non_neg_integer(),
                  local := non_neg_integer(), bytes := non_neg_integer()}.
-type found() :: #{dirs := #{binary() => need()},
                   %% New directories on one side, which need work once they are made.
                   coming := #{binary() => need()},
                   later := #{binary() => Second :: integer()},
                   missing := [binary()],       % a directory that is there no more
                   unknown := [binary()]}.      % a directory of which not all could be seen

-type place() :: {both, binary()} | {only, side(), binary()}.

%% "Both" places are looked at with all below them where both sides have it; a
%% directory of its own as "one".
-spec run([place() | {one, binary()}], world()) -> found().
run(Places, World) ->
    %% The processes get only what they need.
    Small = maps:with([local, cloud, tree, stuck, force], World),
    Seen = erlang:system_time(second),
    engine_pool:run(Places, fun(Place, _) -> look(Place, Seen, Small) end,
                    fun({done, Place, Result}, Found) -> take(Place, Result, Found) end,
                    #{dirs => #{}, coming => #{}, later => #{}, missing => [], unknown => []}).

take({one, Dir}, {looked, Need, _, Later, Unknown, More}, Found) ->
    {More, add(Dir, Need, Later, Unknown, Found)};
take({both, Dir}, {looked, Need, Dirs, Later, Unknown, More}, Found) ->
    {[{both, Sub} || Sub <- Dirs] ++ More, add(Dir, Need, Later, Unknown, Found)};
take({only, _, Dir}, {counted, Need, More}, #{coming := Coming} = Found) ->
    {More, Found#{coming := Coming#{Dir => Need}}};
take({_, Dir}, missing, #{missing := Missing} = Found) -> {[], Found#{missing := [Dir | Missing]}};
take({_, Dir}, unknown, #{unknown := Unknown} = Found) -> {[], Found#{unknown := [Dir | Unknown]}};
take({only, _, Dir}, unknown, #{unknown := Unknown} = Found) -> {[], Found#{unknown := [Dir | Unknown]}}.

add(Dir, Need, Later, Unknown, #{dirs := Dirs, later := AllLater, unknown := Before} = Found) ->
    Found#{dirs := case Need of
                       none -> Dirs;
                       _ -> Dirs#{Dir => Need}
                   end,
           later := case Later of
                        none -> AllLater;
                        _ -> AllLater#{Dir => Later}
                    end,
           unknown := [Dir || Unknown] ++ Before}.

look({only, Side, Dir}, _, World) -> count(Side, Dir, World);
look({_, Dir}, Seen, #{local := Local, cloud := Cloud, tree := Tree, stuck := Stuck, force := Force}) ->
    case {engine_scan:dir(Local, Dir), engine_scan:dir(Cloud, Dir)} of
        {{ok, L}, {ok, C}} ->
            Summary = #{dir => Dir, seen => Seen, stuck => Stuck, force => Force, need => none, dirs => [], later => none,
                        unknown => false, more => []},
            #{need := Need, dirs := Dirs, later := Later, unknown := Unknown, more := More} =
                merge(L, C, engine_tree:children(Dir, Tree), Summary),
            {looked, Need, Dirs, Later, Unknown, More};
        {{error, Reason}, _} when Reason =:= enoent; Reason =:= enotdir -> missing;
        {_, {error, Reason}} when Reason =:= enoent; Reason =:= enotdir -> missing;
        _ -> unknown
    end.

%% The three lists are sorted by name.
merge([], [], [], Summary) -> Summary;
merge(L, C, T, Summary) ->
    Name = lists:min([N || [{N, _} | _] <- [L, C, T]]),
    {LEntry, L1} = head(Name, L, absent),
    {CEntry, C1} = head(Name, C, absent),
    {Base, T1} = head(Name, T, none),
    merge(L1, C1, T1, item(Name, LEntry, CEntry, Base, Summary)).

head(Name, [{Name, Value} | Rest], _) -> {Value, Rest};
head(_, List, Default) -> {Default, List}.

item(Name, L, C, Base, #{dir := Dir, stuck := Stuck, seen := Seen, force := Force} = Summary0) ->
    Path = engine_path:child(Dir, Name),
    Known = is_stuck(Path, L, C, Stuck),
    Summary = place(Path, L, C, Summary0),
    case engine_plan:news(Base, L, C, Seen) of
        _ when L =:= unknown; C =:= unknown -> Summary#{unknown := true};
        same -> Summary;
        {later, Second} when Force -> later(Second, need(Path, L, C, Base, Summary));
        {later, Second} -> later(Second, Summary);
        news when Known -> Summary;
        news -> need(Path, L, C, Base, Summary)
    end.

is_stuck(Path, L, C, Stuck) ->
    case Stuck of
        #{Path := {L, C}} -> true;
        _ -> false
    end.

later(Second, #{later := none} = Summary) -> Summary#{later := Second};
later(Second, #{later := Before} = Summary) -> Summary#{later := min(Second, Before)}.

%% Where to look further.
place(Path, {dir, _}, {dir, _}, #{dirs := Dirs} = Summary) -> Summary#{dirs := [Path | Dirs]};
place(_, _, _, Summary) -> Summary.

need(Path, L, C, Base, #{need := Before, more := More} = Summary) ->
    Need = case Before of
               none -> nothing();
               _ -> Before
           end,
    Summary#{need := copies(Base, L, C, missing(Base, L, C, Need)),
             more := further(Path, L, C, Base) ++ More}.

nothing() -> #{gone => [], new => [], cloud => 0, local => 0, bytes => 0}.

missing(none, _, absent, #{new := New} = Need) -> Need#{new := lists:usort([local | New])};
missing(none, absent, _, #{new := New} = Need) -> Need#{new := lists:usort([cloud | New])};
missing(none, _, _, Need) -> Need;
missing(_, L, C, #{gone := Gone} = Need) ->
    Need#{gone := lists:usort([local || L =:= absent] ++ [cloud || C =:= absent] ++ Gone)}.

copies(none, {file, Sig}, absent, Need) -> copied(cloud, Sig, Need);
copies(none, absent, {file, Sig}, Need) -> copied(local, Sig, Need);
copies(#{kind := file, local := {L, _}, cloud := {C, _}}, {file, LNow}, {file, CNow}, Need) ->
    case {LNow =:= L, CNow =:= C} of
        {false, true} -> copied(cloud, LNow, Need);
        {true, false} -> copied(local, CNow, Need);
        _ -> Need
    end;
copies(_, _, _, Need) -> Need.

copied(Side, {Size, _, _, _}, #{bytes := Bytes} = Need) ->
    maps:update_with(Side, fun(Count) -> Count + 1 end, Need#{bytes := Bytes + Size}).

%% A directory that only one side has is counted at once, and looked at when
%% the other side has it, too.
further(Path, {dir, _}, absent, none) -> [{only, local, Path}];
further(Path, absent, {dir, _}, none) -> [{only, cloud, Path}];
further(_, _, _, _) -> [].

count(Side, Dir, World) ->
    case engine_scan:dir(maps:get(Side, World), Dir) of
        {ok, Listing} ->
            Sizes = [Size || {_, {file, {Size, _, _, _}}} <- Listing],
            Need = maps:put(engine_plan:other(Side), length(Sizes), nothing()),
            {counted, Need#{bytes := lists:sum(Sizes)},
             [{only, Side, engine_path:child(Dir, Name)} || {Name, {dir, _}} <- Listing]};
        {error, _} -> unknown
    end.

%% The directory itself, or the nearest one above it, that both sides have and
%% that both are known to have had. Looked for from the root on, or the way to it
%% could lead through a link.
-spec nearest(binary(), world()) -> binary().
nearest(Dir, World) -> nearest(engine_path:ancestors(Dir) ++ [Dir || Dir =/= <<>>], <<>>, World).

nearest([], Found, _) -> Found;
nearest([Dir | Below], Found, #{local := Local, cloud := Cloud, tree := Tree} = World) ->
    case {engine_file:look(engine_file:join(Local, Dir)), engine_file:look(engine_file:join(Cloud, Dir)),
          engine_tree:get(Dir, Tree)} of
        {{dir, _}, {dir, _}, #{kind := dir}} -> nearest(Below, Dir, World);
        _ -> Found
    end.

%% ---- For the planner -------------------------------------------------------

-type seen_all() :: {#{binary() => engine_tree:base()}, Local :: engine_scan:view(), Cloud :: engine_scan:view(),
                     Missing :: [binary()]}.

-spec nothing_seen() -> seen_all().
nothing_seen() -> {#{}, {#{}, []}, {#{}, []}, []}.

%% Adds all that is known and seen in a directory. Where a directory in it is not
%% what it was on both sides, all that is below that belongs to it. One that is
%% new on one side is looked into only if asked to.
-spec collect(binary(), flat | deep, world(), seen_all()) -> seen_all().
collect(Dir, Depth, #{local := Local, cloud := Cloud, tree := Tree} = World, {Nodes, {L, LU}, {C, CU}, Missing}) ->
    case {engine_scan:dir(Local, Dir), engine_scan:dir(Cloud, Dir)} of
        {{ok, LNames}, {ok, CNames}} ->
            Children = engine_tree:children(Dir, Tree),
            Added = {lists:foldl(fun({Name, Base}, N) -> N#{engine_path:child(Dir, Name) => Base} end, Nodes, Children),
                     seen(Dir, LNames, {L, LU}), seen(Dir, CNames, {C, CU}), Missing},
            Dirs = lists:usort([Name || {Name, {dir, _}} <- LNames ++ CNames] ++ [Name || {Name, #{kind := dir}} <- Children]),
            lists:foldl(fun(Name, Acc) -> deeper(engine_path:child(Dir, Name), Depth, World, Acc) end, Added, Dirs);
        {L1, C1} when L1 =:= {error, enoent}; L1 =:= {error, enotdir}; C1 =:= {error, enoent}; C1 =:= {error, enotdir} ->
            {Nodes, {L, LU}, {C, CU}, [Dir | Missing]};
        _ -> {Nodes, {L, [Dir | LU]}, {C, CU}, Missing}
    end.

%% Adds the directories themselves, and those above them.
-spec collect_above([binary()], world(), seen_all()) -> seen_all().
collect_above(Dirs, #{local := Local, cloud := Cloud, tree := Tree}, Seen) ->
    Above = lists:usort(lists:append([[Dir | engine_path:ancestors(Dir)] || Dir <- Dirs, Dir =/= <<>>])),
    lists:foldl(fun(Dir, {Nodes, {L, LU}, {C, CU}, Missing}) ->
                        {with(Dir, engine_tree:get(Dir, Tree), Nodes),
                         {with(Dir, engine_file:look(engine_file:join(Local, Dir)), L), LU},
                         {with(Dir, engine_file:look(engine_file:join(Cloud, Dir)), C), CU}, Missing}
                end, Seen, Above).

with(Dir, #{} = Base, Map) -> Map#{Dir => Base};
with(Dir, {dir, _} = Entry, Map) -> Map#{Dir => Entry};
with(_, _, Map) -> Map.

seen(Dir, Listing, {Entries, Unknown}) ->
    lists:foldl(fun({Name, unknown}, {E, U}) -> {E, [engine_path:child(Dir, Name) | U]};
                   ({Name, Entry}, {E, U}) -> {E#{engine_path:child(Dir, Name) => Entry}, U}
                end, {Entries, Unknown}, Listing).

deeper(Path, Depth, #{local := Local, cloud := Cloud, tree := Tree}, {Nodes, {L, _} = LView, {C, _} = CView, Missing} = Found) ->
    case {maps:get(Path, L, absent), maps:get(Path, C, absent), maps:get(Path, Nodes, none)} of
        {{dir, _}, {dir, _}, _} -> Found;
        {{dir, _}, absent, none} when Depth =:= flat -> Found;
        {absent, {dir, _}, none} when Depth =:= flat -> Found;
        {LEntry, CEntry, _} ->
            {maps:merge(Nodes, maps:from_list(engine_tree:below(Path, Tree))),
             below(Local, Path, LEntry, LView), below(Cloud, Path, CEntry, CView), Missing}
    end.

below(Root, Path, {dir, _}, View) -> engine_scan:below(Root, Path, View);
below(_, _, _, View) -> View.

%% How many files and bytes some directories need.
-spec size(#{binary() => need()}) -> {Cloud :: non_neg_integer(), Local :: non_neg_integer(), Bytes :: non_neg_integer()}.
size(Needs) ->
    maps:fold(fun(_, #{cloud := Up, local := Down, bytes := Bytes}, {Ups, Downs, Sum}) ->
                      {Ups + Up, Downs + Down, Sum + Bytes}
              end, {0, 0, 0}, Needs).
