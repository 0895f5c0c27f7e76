%% What is in a root now. A place that could not be looked at is "unknown":
%% nothing may be concluded from what is not seen there.
-module(engine_scan).

-export([full/1, partial/3, size/1]).

-export_type([view/0]).

-type view() :: {Entries :: #{binary() => engine_file:entry()}, Unknown :: [binary()]}.

-spec full(binary()) -> view().
full(Root) -> walk(Root, <<>>, {#{}, []}).

walk(Root, Dir, {Entries, Unknown}) ->
    case engine_file:list(engine_file:join(Root, Dir)) of
        {ok, Names} ->
            lists:foldl(fun(Name, View) -> entry(Root, Dir, Name, View) end,
                        {Entries, Unknown}, Names);
        {error, _} ->
            {Entries, [Dir | Unknown]}
    end.

entry(Root, Dir, Name, {Entries, Unknown} = View) ->
    Path = engine_path:child(Dir, Name),
    case engine_names:is_own(Path) of
        true -> View;
        false ->
            case engine_file:look(engine_file:join(Root, Path)) of
                {dir, _} = Found -> walk(Root, Path, {Entries#{Path => Found}, Unknown});
                {file, _} = Found -> {Entries#{Path => Found}, Unknown};
                other -> {Entries#{Path => other}, Unknown};
                %% Gone since it was listed: the next look will tell.
                absent -> {Entries, [Path | Unknown]};
                {error, _} -> {Entries, [Path | Unknown]}
            end
    end.

%% Looks again at the entries of some directories. A subdirectory that is new
%% there, or that took another's place, is walked whole; a directory that is
%% gone stands for the nearest one above it that is left.
-spec partial(binary(), [binary()], view()) -> view().
partial(Root, Dirs, {Entries, _} = View) ->
    Wanted = lists:usort([nearest(Root, Dir, Entries) || Dir <- Dirs, not in_cache(Dir)]),
    case Wanted of
        [] -> View;
        _ ->
            Children = children(sets:from_list(Wanted), Entries),
            lists:foldl(fun(Dir, Seen) -> again(Root, Dir, Children, Seen) end, View, Wanted)
    end.

in_cache(Dir) ->
    Cache = engine_file:cache_name(),
    Dir =:= Cache orelse engine_path:is_below(Dir, Cache).

nearest(_, <<>>, _) -> <<>>;
nearest(Root, Dir, Entries) ->
    case {Entries, engine_file:look(engine_file:join(Root, Dir))} of
        {#{Dir := {dir, _}}, {dir, _}} -> Dir;
        _ -> nearest(Root, engine_path:parent(Dir), Entries)
    end.

children(Dirs, Entries) ->
    maps:fold(fun(Path, _, Index) ->
                      Parent = engine_path:parent(Path),
                      case sets:is_element(Parent, Dirs) of
                          true -> maps:update_with(Parent, fun(L) -> [Path | L] end,
                                                   [Path], Index);
                          false -> Index
                      end
              end, #{}, Entries).

again(Root, Dir, Children, {Entries, Unknown}) ->
    case engine_file:list(engine_file:join(Root, Dir)) of
        {error, _} -> {Entries, lists:usort([Dir | Unknown])};
        {ok, Names} ->
            Here = [engine_path:child(Dir, Name) || Name <- Names],
            Gone = maps:get(Dir, Children, []) -- Here,
            Settled = [U || U <- Unknown, U =/= Dir, engine_path:parent(U) =/= Dir],
            Left = lists:foldl(fun forget/2, Entries, Gone),
            lists:foldl(fun(Name, View) -> revisit(Root, Dir, Name, View) end,
                        {Left, Settled}, Names)
    end.

revisit(Root, Dir, Name, {Entries, Unknown} = View) ->
    Path = engine_path:child(Dir, Name),
    Now = engine_file:look(engine_file:join(Root, Path)),
    case Entries of
        #{Path := Now} -> View;
        #{Path := _} -> entry(Root, Dir, Name, {forget(Path, Entries), Unknown});
        _ -> entry(Root, Dir, Name, View)
    end.

forget(Path, Entries) ->
    case Entries of
        #{Path := {dir, _}} ->
            maps:filter(fun(Other, _) ->
                                Other =/= Path andalso not engine_path:is_below(Other, Path)
                        end, Entries);
        _ -> maps:remove(Path, Entries)
    end.

%% The bytes that the files of a view take up.
-spec size(view()) -> non_neg_integer().
size({Entries, _}) ->
    maps:fold(fun(_, {file, {Size, _, _, _}}, Sum) -> Sum + Size;
                 (_, _, Sum) -> Sum
              end, 0, Entries).
