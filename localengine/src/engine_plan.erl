%% Decides what must happen so that both sides hold the same. Nothing here
%% touches a disk: it reads what the tree remembers and what was seen, and
%% gives back a list of actions.
%%
%% The rules: what only one side changed goes to the other; what both changed
%% is kept twice; a change wins over a deletion; whatever could not be looked
%% at, and everything below it, is left alone.
-module(engine_plan).

-export([moves/3, doubts/3, plan/4, other/1, may_differ/2, news/4]).

-export_type([action/0, side/0, hashes/0]).

-type side() :: local | cloud.
-type hashes() :: #{{side(), binary()} => {Hash :: binary(), Seen :: integer()} | error}.
%% In "copy", "mkdir", "delete" and "rmdir" the side is the one that changes.
-type action() :: {aside, side(), binary()}
                | {delete, side(), binary()} | {rmdir, side(), binary()}
                | {forget, binary()}
                | {mkdir, side(), binary()} | {move, side(), binary(), binary()}
                | {adopt, binary()} | {copy, side(), binary()}.

-type nodes() :: #{binary() => engine_tree:base()}.

-spec other(side()) -> side().
other(local) -> cloud;
other(cloud) -> local.

%% ---- Renames ---------------------------------------------------------------

%% Items that were renamed on one side and can be renamed on the other. Only
%% a saving: without it they would be copied and deleted.
-spec moves(nodes(), engine_scan:view(), engine_scan:view()) -> [action()].
moves(Nodes, {Local, LocalUnknown}, {Cloud, CloudUnknown}) ->
    case LocalUnknown ++ CloudUnknown of
        [] ->
            {Up, Nodes1, Cloud1} = moves(cloud, Nodes, Local, Cloud),
            {Down, _, _} = moves(local, Nodes1, Cloud1, Local),
            Up ++ Down;
        _ -> []
    end.

%% Seen is the side where the user renamed, Target the one to follow.
moves(Side, Nodes, Seen, Target) ->
    New = maps:fold(fun(Path, Entry, Index) ->
                            case is_map_key(Path, Nodes) of
                                true -> Index;
                                false -> index(Path, Entry, Index)
                            end
                    end, #{}, Seen),
    Gone = case map_size(New) of
               0 -> [];
               _ -> lists:sort([{engine_path:depth(Path), Path}
                                || Path <- maps:keys(Nodes), not is_map_key(Path, Seen)])
           end,
    {Actions, Nodes1, Target1} =
        lists:foldl(fun({_, From}, Acc) -> move(Side, From, New, Seen, Acc) end,
                    {[], Nodes, Target}, Gone),
    {lists:reverse(Actions), Nodes1, Target1}.

index(Path, {Kind, {Size, MTime, _, Inode}}, Index) when Inode =/= 0 ->
    maps:put({Kind, Size, MTime, Inode}, Path, Index);
index(_, _, Index) -> Index.

move(Side, From, New, Seen, {Actions, Nodes, Target} = Acc) ->
    case {Nodes, Target} of
        {#{From := Base}, #{From := Entry}} ->
            {{Size, MTime, _, Inode}, _} = maps:get(other(Side), Base),
            To = maps:get({maps:get(kind, Base), Size, MTime, Inode}, New, none),
            case To =/= none andalso untouched(Side, Base, Entry)
                andalso not is_map_key(To, Target)
                andalso not engine_path:is_below(To, From) of
                true ->
                    case parents(Side, engine_path:ancestors(To), Seen, Target, []) of
                        {ok, Mkdirs, Target1} ->
                            {[{move, Side, From, To} | Mkdirs ++ Actions],
                             rekey(Base, From, To, Nodes), rekey(Base, From, To, Target1)};
                        error -> Acc
                    end;
                false -> Acc
            end;
        _ -> Acc
    end.

untouched(_, #{kind := dir}, {dir, _}) -> true;
untouched(Side, #{kind := file} = Base, {file, Sig}) ->
    {Sig0, _} = maps:get(Side, Base),
    Sig =:= Sig0;
untouched(_, _, _) -> false.

parents(_, [], _, Target, Mkdirs) -> {ok, Mkdirs, Target};
parents(Side, [Dir | Dirs], Seen, Target, Mkdirs) ->
    case {Target, Seen} of
        {#{Dir := {dir, _}}, _} -> parents(Side, Dirs, Seen, Target, Mkdirs);
        {#{Dir := _}, _} -> error;
        {_, #{Dir := {dir, _} = Entry}} ->
            parents(Side, Dirs, Seen, Target#{Dir => Entry}, [{mkdir, Side, Dir} | Mkdirs]);
        _ -> error
    end.

rekey(#{kind := dir}, From, To, Map) -> engine_path:move_keys(From, To, Map);
rekey(#{kind := file}, From, To, Map) ->
    {Value, Rest} = maps:take(From, Map),
    Rest#{To => Value}.

%% ---- Doubts ----------------------------------------------------------------

%% The files whose content must be read before anything can be decided.
-spec doubts(nodes(), engine_scan:view(), engine_scan:view()) -> [{side(), binary()}].
doubts(Nodes, Local, Cloud) ->
    Frozen = frozen(Local, Cloud),
    {LocalEntries, _} = Local,
    {CloudEntries, _} = Cloud,
    Asked = [doubt(Path, maps:get(Path, Nodes, none),
                   maps:get(Path, LocalEntries, absent), maps:get(Path, CloudEntries, absent))
             || Path <- paths(#{}, LocalEntries, CloudEntries), not is_frozen(Path, Frozen)],
    lists:append(Asked).

doubt(Path, Base, L, C) ->
    States = {state(local, Base, L), state(cloud, Base, C)},
    case {States, L, C} of
        {{SL, SC}, {file, {Size, _, _, _}}, {file, {Size, _, _, _}}}
          when SL =/= same, SC =/= same -> [{local, Path}, {cloud, Path}];
        {{SL, SC}, _, _} ->
            [{local, Path} || SL =:= doubt] ++ [{cloud, Path} || SC =:= doubt]
    end.

state(_, _, absent) -> absent;
state(_, none, _) -> new;
state(_, #{kind := dir}, {dir, _}) -> same;
state(Side, #{kind := file} = Base, {file, {Size, MTime, _, _} = Sig}) ->
    case {maps:get(Side, Base), is_fresh(MTime, maps:get(Side, Base))} of
        {{Sig, _}, false} -> same;
        {{{Size, _, _, _}, _}, _} -> doubt;
        _ -> changed
    end;
state(_, _, _) -> changed.

%% A file may change again within the second in which it was seen, and look
%% the same.
is_fresh(MTime, {_, Seen}) -> MTime >= Seen - 1.

%% Whether a file that looks as it did may still hold something else.
-spec may_differ(side(), engine_tree:base()) -> boolean().
may_differ(_, #{kind := dir}) -> false;
may_differ(Side, Base) ->
    #{Side := {{_, MTime, _, _}, _} = Mark} = Base,
    is_fresh(MTime, Mark).

%% Whether an item is as both sides last had it. Files that look so, but may
%% have changed again within the second in which they were seen, are news from
%% the second on in which reading them tells. Seen is now. A time far ahead of it
%% is none that a write gives.
-spec news(engine_tree:base() | none, Local, Cloud, integer()) -> same | news | {later, integer()}
              when Local :: engine_file:entry() | absent | unknown, Cloud :: engine_file:entry() | absent | unknown.
news(_, L, C, _) when L =:= other; C =:= other; L =:= unknown; C =:= unknown -> same;
news(#{kind := Kind, local := {L, _}, cloud := {C, _}} = Base, {Kind, L}, {Kind, C}, Seen) ->
    case [MTime || Kind =:= file, Side <- [local, cloud], may_differ(Side, Base),
                   #{Side := {{_, MTime, _, _}, _}} <- [Base], MTime < Seen + 60] of
        [] -> same;
        Times ->
            case lists:max(Times) + 2 of
                Second when Second > Seen -> {later, Second};
                _ -> news
            end
    end;
news(_, _, _, _) -> news.

%% ---- The plan --------------------------------------------------------------

-spec plan(nodes(), engine_scan:view(), engine_scan:view(), hashes()) -> [action()].
plan(Nodes, {Local, _} = LocalView, {Cloud, _} = CloudView, Hashes) ->
    Frozen0 = frozen(LocalView, CloudView),
    Paths = [Path || Path <- paths(Nodes, Local, Cloud), not is_frozen(Path, Frozen0)],
    Look = fun(Path) ->
                   Base = maps:get(Path, Nodes, none),
                   L = maps:get(Path, Local, absent),
                   C = maps:get(Path, Cloud, absent),
                   {Base, settle(local, Path, Base, L, Hashes),
                    settle(cloud, Path, Base, C, Hashes), L, C}
           end,
    Unsettled = [Path || {{_, Path}, error} <- maps:to_list(Hashes)],
    {Clashes, Closed} = clashes(Paths, Look, {[], sets:from_list(Unsettled)}),
    Open = case sets:is_empty(Closed) of
               true -> Paths;
               false -> [Path || Path <- Paths, not is_frozen(Path, Closed)]
           end,
    {Actions, Halves} = lists:foldl(
                          fun(Path, Acc) -> decide(Path, Look(Path), Hashes, Acc) end,
                          {Clashes, []}, Open),
    Held = [Path || Path <- Unsettled ++ sets:to_list(Frozen0)],
    order(Actions ++ halves(Halves, needed(Held, Actions))).

paths(Nodes, Local, Cloud) ->
    lists:sort(maps:keys(maps:merge(maps:merge(Nodes, Local), Cloud))).

frozen({Local, LocalUnknown}, {Cloud, CloudUnknown}) ->
    Others = [Path || Entries <- [Local, Cloud], {Path, other} <- maps:to_list(Entries)],
    sets:from_list(LocalUnknown ++ CloudUnknown ++ Others).

is_frozen(Path, Frozen) ->
    not sets:is_empty(Frozen)
        andalso lists:any(fun(P) -> sets:is_element(P, Frozen) end,
                          [Path, <<>> | engine_path:ancestors(Path)]).

%% The state of a path on one side once contents were read.
settle(Side, Path, Base, Entry, Hashes) ->
    case state(Side, Base, Entry) of
        doubt ->
            case Hashes of
                #{{Side, Path} := {Hash, _}} ->
                    case Base of
                        #{hash := Hash} -> same;
                        _ -> changed
                    end;
                _ -> doubt
            end;
        State -> State
    end.

%% A file on one side and a directory on the other.
clashes(Paths, Look, Found) ->
    lists:foldl(
      fun(Path, {Actions, Closed} = Acc) ->
              case Look(Path) of
                  {Base, State, _, {file, _}, {dir, _}} ->
                      clash(local, Path, Base, State, Paths, Look, Acc);
                  {Base, _, State, {dir, _}, {file, _}} ->
                      clash(cloud, Path, Base, State, Paths, Look, Acc);
                  _ -> {Actions, Closed}
              end
      end, Found, Paths).

%% Side is where the file is.
clash(Side, Path, Base, State, Paths, Look, {Actions, Closed}) ->
    case {Base, State} of
        {#{kind := file}, same} ->
            {[{delete, Side, Path} | Actions], sets:add_element(Path, Closed)};
        {#{kind := dir}, _} ->
            Below = [Look(P) || P <- Paths, engine_path:is_below(P, Path)],
            case lists:all(fun(Item) -> unchanged(other(Side), Item) end, Below) of
                true -> {Actions, Closed};
                false -> {[{aside, Side, Path} | Actions], sets:add_element(Path, Closed)}
            end;
        _ -> {[{aside, Side, Path} | Actions], sets:add_element(Path, Closed)}
    end.

unchanged(local, {_, State, _, _, _}) -> State =:= same orelse State =:= absent;
unchanged(cloud, {_, _, State, _, _}) -> State =:= same orelse State =:= absent.

decide(Path, {Base, SL, SC, L, C}, Hashes, {Actions, Halves}) ->
    case {SL, SC} of
        _ when SL =:= doubt; SC =:= doubt -> {Actions, Halves};
        {absent, absent} -> {[{forget, Path} | Actions], Halves};
        {absent, _} -> one_sided(local, Path, SC, C, Actions, Halves);
        {_, absent} -> one_sided(cloud, Path, SL, L, Actions, Halves);
        _ -> {both(Path, Base, SL, SC, L, C, Hashes) ++ Actions, Halves}
    end.

%% Side is where the path is missing. Whether a directory that was deleted
%% there really goes depends on what becomes of the things in it.
one_sided(Side, Path, same, {dir, _}, Actions, Halves) -> {Actions, [{Side, Path} | Halves]};
one_sided(Side, Path, _, {dir, _}, Actions, Halves) -> {[{mkdir, Side, Path} | Actions], Halves};
one_sided(Side, Path, same, {file, _}, Actions, Halves) ->
    {[{delete, other(Side), Path} | Actions], Halves};
one_sided(Side, Path, _, {file, _}, Actions, Halves) -> {[{copy, Side, Path} | Actions], Halves}.

both(Path, Base, _, _, {dir, L}, {dir, C}, _) ->
    case Base of
        #{kind := dir, local := {L, _}, cloud := {C, _}} -> [];
        _ -> [{adopt, Path}]
    end;
both(Path, Base, SL, SC, {file, L}, {file, C}, Hashes) ->
    case {SL, SC} of
        {same, same} ->
            #{local := {L0, _}, cloud := {C0, _}} = Base,
            Read = is_map_key({local, Path}, Hashes) orelse is_map_key({cloud, Path}, Hashes),
            [{adopt, Path} || Read orelse L =/= L0 orelse C =/= C0];
        {same, _} -> [{copy, local, Path}];
        {_, same} -> [{copy, cloud, Path}];
        _ ->
            case Hashes of
                #{{local, Path} := {Hash, _}, {cloud, Path} := {Hash, _}} -> [{adopt, Path}];
                _ -> [{aside, local, Path}]
            end
    end;
%% A directory became a file and nothing in it was changed: it goes.
both(Path, _, _, _, {file, _}, {dir, _}, _) -> [{rmdir, cloud, Path}];
both(Path, _, _, _, {dir, _}, {file, _}, _) -> [{rmdir, local, Path}].

%% The directories that must exist because something in them stays.
needed(Held, Actions) ->
    Kept = Held ++ [Path || {Kind, _, Path} <- Actions, Kind =/= delete, Kind =/= rmdir],
    sets:from_list(lists:append([[Path | engine_path:ancestors(Path)] || Path <- Kept])).

halves(Halves, Needed) ->
    [case sets:is_element(Path, Needed) of
         true -> {mkdir, Side, Path};
         false -> {rmdir, other(Side), Path}
     end || {Side, Path} <- Halves].

%% Room is made before it is used, directories come before what is in them.
order(Actions) ->
    [Action || {_, Action} <- lists:sort([{rank(Action), Action} || Action <- Actions])].

rank({aside, _, _}) -> {1, 0};
rank({delete, _, _}) -> {2, 0};
rank({rmdir, _, Path}) -> {3, -engine_path:depth(Path)};
rank({forget, _}) -> {4, 0};
rank({mkdir, _, Path}) -> {5, engine_path:depth(Path)};
rank({adopt, _}) -> {6, 0};
rank({copy, _, Path}) -> {7, Path}.
