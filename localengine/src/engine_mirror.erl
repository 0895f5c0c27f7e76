%% One pass of the mirror: finds out which directories need work, asks the
%% planner about them and carries its actions out, checking before each one that
%% the world is still as seen. Whatever it does can be cut off at any moment: a
%% pass that starts with what was left finds either the old state or the new
%% one, never half of it.
-module(engine_mirror).

-export([new/1, pass/3]).

-export_type([mirror/0, options/0, result/0]).

%% Change is called with what has changed in the tree, in order, and returns
%% once the tree shows it.
-type options() :: #{uid := pos_integer(), local := binary(), cloud := binary(),
                     tree := engine_tree:tree(), change => fun(([engine_tree:delta()]) -> ok),
                     quota := non_neg_integer(), rate := pos_integer() | unlimited,
                     opener := fun(), report := fun((term()) -> ok),
                     system => engine_names:system()}.
-type result() :: {blocked, local | cloud}
                | {done, #{space := non_neg_integer(),
                           scan_ms := non_neg_integer(),  % what a look at everything costs
                           due := none | integer(),       % the second from which on a file tells whether it changed
                           retry := boolean(),    % something could not be done yet
                           again := boolean()}}.  % something moved meanwhile
-opaque mirror() :: #{atom() => term()}.

-define(REPORT_MS, 300).
%% So many items are planned at once.
-define(BATCH, 2000).
-define(DELTAS, 200).
-define(FLUSH_MS, 100).
-define(TOLD_BYTES, 65536).
%% So many copies go together, as messages cost, too.
-define(BUNDLE, 32).
%% A copy of this size is remembered at once.
-define(LARGE, 1048576).
%% Fewer copies than this are made one by one.
-define(MANY, 8).

-spec new(options()) -> mirror().
new(#{tree := Tree} = Options) ->
    Prefix = binary:encode_hex(binary:part(crypto:hash(sha256, maps:get(local, Options)), 0, 6)),
    Defaults = #{system => engine_names:system(),
                 change => fun(Deltas) -> lists:foreach(fun(Delta) -> engine_tree:change(Delta, Tree) end, Deltas) end},
    Mirror = maps:merge(Defaults,
                        Options#{prefix => Prefix, views => none, nodes => #{}, known => false, recalled => true,
                                 stuck => #{}, unseen => [], later => #{}, held => #{}, deltas => [],
                                 flushed => erlang:monotonic_time(millisecond),
                                 again => false, force => false, disturbed => #{},
                                 moves => [], moved => [], made => [], alike => sets:new(), hashes => #{},
                                 progress => none, space => 0, scan_ms => 0}),
    [clean(Mirror, Side) || Side <- [local, cloud]],
    Mirror.

%% Temporary files of an earlier run; other engines on the same cloud have
%% their own prefix.
clean(#{prefix := Prefix} = Mirror, Side) ->
    Cache = cache_dir(Mirror, Side),
    Size = byte_size(Prefix),
    case engine_file:list(Cache) of
        {ok, Names} ->
            [engine_file:delete(engine_file:join(Cache, Name))
             || <<Start:Size/binary, _/binary>> = Name <- Names, Start =:= Prefix];
        {error, _} -> []
    end.

cache_dir(Mirror, Side) ->
    engine_file:join(maps:get(Side, Mirror), engine_file:cache_name()).

%% Dirs are the directories to look at again, on both sides, or "all"; Force
%% tries again what could not be done.
-spec pass([binary()] | all, boolean(), mirror()) -> {result(), mirror()}.
pass(Dirs, Force, Mirror0) ->
    case bind(Mirror0) of
        {blocked, Side} -> {{blocked, Side}, Mirror0#{known := false}};
        {ok, Mirror1} ->
            Mirror2 = Mirror1#{again := false, force := Force, disturbed := #{}},
            case Force of
                true -> work(with_stuck(Dirs, Mirror2), Mirror2#{stuck := #{}});
                false -> work(Dirs, Mirror2)
            end
    end.

with_stuck(all, _) -> all;
with_stuck(Dirs, #{stuck := Stuck}) -> Dirs ++ [engine_path:parent(Path) || Path <- maps:keys(Stuck)].

%% The tree is believed only for the two roots that it was made from.
bind(#{uid := Uid, tree := Tree} = Mirror) ->
    case {engine_roots:check(maps:get(local, Mirror)),
          engine_roots:check(maps:get(cloud, Mirror))} of
        {missing, _} -> {blocked, local};
        {_, missing} -> {blocked, cloud};
        {Local, Cloud} ->
            case {claim(Mirror, local, Local, Uid), claim(Mirror, cloud, Cloud, Uid)} of
                {{ok, LocalToken}, {ok, CloudToken}} ->
                    Tokens = {LocalToken, CloudToken},
                    case engine_tree:tokens(Tree) of
                        Tokens -> {ok, Mirror};
                        _ -> {ok, flush(change({bind, Tokens}, Mirror#{known := false}))}
                    end;
                {{error, _}, _} -> {blocked, local};
                {_, {error, _}} -> {blocked, cloud}
            end
    end.

claim(_, _, {marked, Uid, Token}, Uid) -> {ok, Token};
claim(Mirror, Side, _, Uid) -> engine_roots:claim(maps:get(Side, Mirror), Uid).

%% What is changed goes out in bundles; whoever reads the tree flushes first.
%% Nothing waits long, as a mirror that is ended forgets what it held.
change(Delta, #{deltas := Deltas, flushed := Flushed} = Mirror) ->
    More = Mirror#{deltas := [Delta | Deltas]},
    case length(Deltas) >= ?DELTAS orelse erlang:monotonic_time(millisecond) - Flushed >= ?FLUSH_MS of
        true -> flush(More);
        false -> More
    end.

flush(#{deltas := []} = Mirror) -> Mirror;
flush(#{deltas := Deltas, change := Change} = Mirror) ->
    ok = Change(lists:reverse(Deltas)),
    Mirror#{deltas := [], flushed := erlang:monotonic_time(millisecond)}.

%% ---- Finding the work ------------------------------------------------------

work(Dirs, #{known := Known} = Mirror0) ->
    Started = erlang:monotonic_time(millisecond),
    {Places, Mirror1} = places(Dirs, Mirror0),
    Found = engine_survey:run(Places, Mirror1),
    Whole = Dirs =:= all orelse not Known,
    Mirror2 = surveyed(Found, case Whole of
                                  true -> Mirror1#{later := #{}, unseen := [], known := true,
                                                   scan_ms := erlang:monotonic_time(millisecond) - Started};
                                  false -> Mirror1
                              end),
    {Needs, Coming, Mirror3} = follow_moves(Found, Mirror2),
    Mirror4 = all_batches(Needs, Coming, Mirror3),
    #{again := Again, recalled := Recalled} = Mirror4,
    %% Once all is done, the tree is that of this engine, and as it is.
    Mirror5 = Mirror4#{recalled := Recalled andalso (has_left(Mirror4) orelse Again orelse not Whole), progress := none,
                       views := none, nodes := #{}, hashes := #{}, moves := []},
    {result(Mirror5), Mirror5}.

places(all, Mirror) -> {[{both, <<>>}], Mirror};
places(_, #{known := false} = Mirror) -> {[{both, <<>>}], Mirror};
places(Dirs, #{later := Later, unseen := Unseen} = Mirror) ->
    Now = erlang:system_time(second),
    Due = [Dir || {Dir, Second} <- maps:to_list(Later), Second =< Now],
    Wanted = lists:usort([engine_survey:nearest(Dir, Mirror) || Dir <- Dirs ++ Due ++ Unseen, not in_cache(Dir)]),
    {[{one, Dir} || Dir <- Wanted], Mirror#{later := maps:without(Due, Later), unseen := []}}.

in_cache(Dir) ->
    Cache = engine_file:cache_name(),
    Dir =:= Cache orelse engine_path:is_below(Dir, Cache).

surveyed(#{later := More, missing := Missing, unknown := Unknown}, #{later := Later, unseen := Unseen} = Mirror) ->
    lists:foldl(fun disturbed/2,
                Mirror#{later := maps:merge(Later, More), unseen := lists:usort(Unknown ++ Unseen)},
                Missing).

%% What the cloud's files take up, also those that could not be fetched.
space(#{tree := Tree, stuck := Stuck}) ->
    Beside = [Size - known_size(engine_tree:get(Path, Tree))
              || {Path, {_, {file, {Size, _, _, _}}}} <- maps:to_list(Stuck)],
    max(0, engine_tree:space(Tree) + lists:sum(Beside)).

known_size(#{kind := file, cloud := {{Size, _, _, _}, _}}) -> Size;
known_size(_) -> 0.

has_left(#{stuck := Stuck, unseen := Unseen}) -> map_size(Stuck) > 0 orelse Unseen =/= [].

result(#{scan_ms := ScanMs, again := Again, later := Later} = Mirror) ->
    {done, #{space => space(Mirror), scan_ms => ScanMs, retry => has_left(Mirror), again => Again,
             due => case maps:values(Later) of
                        [] -> none;
                        Seconds -> lists:min(Seconds)
                    end}}.

%% ---- Renames ---------------------------------------------------------------

%% What is gone in one place and new in another may have been renamed. What can
%% be seen without looking deeper is followed first: a directory with all that
%% is in it is one step then.
follow_moves(Found, #{recalled := Recalled} = Mirror) ->
    Depths = case Recalled of
                 true -> [deep];
                 false -> [flat, deep]
             end,
    lists:foldl(fun moves_at/2, {maps:get(dirs, Found), maps:get(coming, Found), Mirror}, Depths).

moves_at(Depth, {Needs, Coming, Mirror0} = Unchanged) ->
    case may_hold_moves(Needs) of
        [] -> Unchanged;
        Dirs ->
            #{system := System} = Mirror0,
            Below = lists:foldl(fun(Dir, Seen) -> engine_survey:collect(Dir, Depth, Mirror0, Seen) end,
                                engine_survey:nothing_seen(), Dirs),
            {Nodes, L, C, _} = engine_survey:collect_above(Dirs, Mirror0, Below),
            {L0, C0, _} = engine_names:refused(System, L, C),
            Mirror1 = show({L, C}, Nodes, Mirror0),
            case engine_plan:moves(Nodes, L0, C0) of
                [] -> Unchanged;
                Moves ->
                    Mirror2 = flush(run(Moves, Mirror1#{moves := Moves, moved := [], made := []})),
                    Moved = maps:get(moved, Mirror2),
                    %% What changed in a directory just before was told of under its old name.
                    Found = engine_survey:run([{one, Dir} || Dir <- lists:usort(Dirs ++ maps:get(made, Mirror2))]
                                              ++ [{both, Dir} || Dir <- Moved], Mirror2),
                    {maps:merge(maps:without(Dirs, Needs), maps:get(dirs, Found)),
                     maps:merge(without_below(Moved, Coming), maps:get(coming, Found)),
                     surveyed(Found, Mirror2)}
            end
    end.

may_hold_moves(Needs) ->
    Moving = maps:filter(fun(_, #{gone := Gone, new := New}) -> Gone ++ New =/= [] end, Needs),
    Sides = fun(What) -> lists:usort(lists:append([maps:get(What, Need) || Need <- maps:values(Moving)])) end,
    case [Side || Side <- Sides(gone), lists:member(Side, Sides(new))] of
        [] -> [];
        _ -> lists:sort(maps:keys(Moving))
    end.

without_below([], Map) -> Map;
without_below(Dirs, Map) ->
    maps:filter(fun(Path, _) ->
                        not lists:any(fun(Dir) -> Path =:= Dir orelse engine_path:is_below(Path, Dir) end, Dirs)
                end, Map).

%% ---- Batches ---------------------------------------------------------------

%% Where something is to be removed comes first: room is made before it is used.
all_batches(Needs, Coming, Mirror) ->
    {Removing, Rest} = lists:partition(fun({_, #{gone := Gone}}) -> Gone =/= [] end, lists:sort(maps:to_list(Needs))),
    Progress = progress(engine_survey:size(maps:merge(Coming, Needs))),
    batches([Dir || {Dir, _} <- Removing ++ Rest], Needs, Coming, Mirror#{progress := Progress}).

%% A directory that was made is worked on next, so that few wait.
batches([], _, _, Mirror) -> Mirror;
batches(Dirs, Needs, Coming, Mirror0) ->
    {Batch, Rest, Seen} = gather(Dirs, [], engine_survey:nothing_seen(), Mirror0),
    Expected = engine_survey:size(maps:with(Batch, maps:merge(Coming, Needs))),
    #{made := Made} = Mirror1 = batch(Batch, Seen, Expected, Mirror0#{made := []}),
    Waiting = maps:without(Batch, Needs),
    batches([Dir || Dir <- Made, not is_map_key(Dir, Waiting)] ++ Rest, Waiting, maps:without(Batch, Coming), Mirror1).

gather([], Batch, Seen, _) -> {Batch, [], Seen};
gather([Dir | Dirs], Batch, Seen0, Mirror) ->
    {Nodes, {L, _}, {C, _}, _} = Seen = engine_survey:collect(Dir, flat, Mirror, Seen0),
    case map_size(Nodes) + map_size(L) + map_size(C) of
        Size when Size >= ?BATCH -> {[Dir | Batch], Dirs, Seen};
        _ -> gather(Dirs, [Dir | Batch], Seen, Mirror)
    end.

batch(Dirs, {Nodes, {_, LUnknown} = L, {_, CUnknown} = C, Missing}, Expected, Mirror0) ->
    #{system := System, unseen := Unseen} = Mirror0,
    Mirror1 = lists:foldl(fun disturbed/2,
                          show({L, C}, Nodes, Mirror0#{unseen := lists:usort(LUnknown ++ CUnknown ++ Unseen)}), Missing),
    {L0, C0, Refused} = engine_names:refused(System, L, C),
    {L1, C1, Clashing} = engine_names:clashing(System, Nodes, L0, C0),
    {Hashes, Mirror2} = read_all(engine_plan:doubts(Nodes, L1, C1), held(Dirs, Refused ++ Clashing, Mirror1)),
    Actions = engine_plan:plan(Nodes, L1, C1, Hashes),
    {Copies, Others} = lists:partition(fun(Action) -> element(1, Action) =:= copy end, Actions),
    Mirror3 = flush(run(Others, Mirror2#{hashes := Hashes})),
    flush(copy_all(Copies, expect(Expected, Copies, Mirror3))).

%% What a batch works on, until the next one.
show({Local, Cloud}, Nodes, Mirror) ->
    Mirror#{views := {Local, Cloud}, nodes := Nodes, hashes := #{}, moves := [],
            alike := alike(Mirror, Local, Cloud, Nodes)}.

%% What is seen under one of these may stand there under another: looking at it
%% takes looking at the directory.
alike(#{system := other}, _, _, _) -> sets:new();
alike(_, {Local, _}, {Cloud, _}, Nodes) ->
    Paths = lists:append([maps:keys(Map) || Map <- [Local, Cloud, Nodes]]),
    sets:from_list(lists:append(engine_names:alike(Paths))).

%% Each is told once, and again after it was gone.
held(Dirs, Held, #{held := Told, report := Report} = Mirror) ->
    [Report({held, Path, Reason}) || {Path, Reason} <- Held, not is_map_key(Path, Told)],
    Elsewhere = maps:filter(fun(Path, _) -> not lists:member(engine_path:parent(Path), Dirs) end, Told),
    Mirror#{held := maps:merge(Elsewhere, maps:from_list(Held))}.

read_all(Doubts, Mirror) ->
    #{opener := Opener} = Mirror,
    Files = [{Side, Path, absolute(Mirror, Side, Path), entry(Mirror, Side, Path)} || {Side, Path} <- Doubts],
    engine_pool:run(workers(Files), Files,
                    fun({_, _, Absolute, _}, _) ->
                            Seen = erlang:system_time(second),
                            {Seen, read_hash(Absolute, Opener), engine_file:look(Absolute)}
                    end,
                    fun({done, {Side, Path, _, Entry}, Read}, Acc) -> {[], have_read(Side, Path, Entry, Read, Acc)} end,
                    {#{}, Mirror}).

have_read(Side, Path, Entry, {Seen, {ok, Hash}, Entry}, {Hashes, Mirror}) ->
    {Hashes#{{Side, Path} => {Hash, Seen}}, Mirror};
have_read(Side, Path, _, {_, {ok, _}, _}, {Hashes, Mirror}) ->
    {Hashes#{{Side, Path} => error}, disturbed(Path, Mirror)};
have_read(Side, Path, _, {_, {error, Reason}, _}, {Hashes, Mirror}) ->
    {Hashes#{{Side, Path} => error}, failed({read, Side, Path}, Reason, Mirror)}.

%% The same door as for copying, so that a file which cannot be read is
%% refused in both places.
read_hash(Absolute, Opener) ->
    case Opener(Absolute, [read, raw, binary]) of
        {ok, File} ->
            _ = file:close(File),
            engine_file:hash(Absolute);
        {error, Reason} -> {error, Reason}
    end.

workers(Items) when length(Items) < ?MANY -> 1;
workers(_) -> engine_pool:workers().

%% ---- Carrying out ----------------------------------------------------------

run(Actions, Mirror) -> lists:foldl(fun act/2, Mirror, Actions).

act({move, Side, From, To} = Action, Mirror) ->
    Other = engine_plan:other(Side),
    case now(Mirror, Side, From) =:= entry(Mirror, Side, From)
        andalso now(Mirror, Side, To) =:= absent
        andalso now(Mirror, Other, From) =:= absent
        andalso now(Mirror, Other, To) =:= entry(Mirror, Other, To) of
        false -> disturbed(From, Mirror);
        true ->
            case as_agreed(Side, From, Mirror) of
                %% It was changed here and renamed there: no mere rename.
                false -> Mirror;
                true -> rename(Side, From, To, Action, Mirror)
            end
    end;
act({mkdir, Side, Path} = Action, Mirror) ->
    case now(Mirror, Side, Path) of
        absent ->
            case engine_file:make_new_dir(absolute(Mirror, Side, Path)) of
                ok -> made(Path, adopt(Path, set_entry(Side, Path, now(Mirror, Side, Path), Mirror)));
                {error, Reason} -> failed(Action, Reason, Mirror)
            end;
        _ -> disturbed(Path, Mirror)
    end;
act({aside, Side, Path} = Action, Mirror) ->
    case now(Mirror, Side, Path) =:= entry(Mirror, Side, Path) of
        false -> disturbed(Path, Mirror);
        true ->
            Free = free_name(Mirror, Path, calendar:local_time(), 1),
            case engine_file:rename(absolute(Mirror, Side, Path), absolute(Mirror, Side, Free)) of
                ok -> disturbed(Path, Mirror);
                {error, Reason} -> failed(Action, Reason, Mirror)
            end
    end;
act({delete, Side, Path} = Action, Mirror) ->
    remove(Side, Path, fun engine_file:delete/1, Action, Mirror);
act({rmdir, Side, Path} = Action, Mirror) ->
    remove(Side, Path, fun engine_file:delete_dir/1, Action, Mirror);
act({forget, Path}, Mirror) -> forget(Path, Mirror);
act({adopt, Path}, #{nodes := Nodes} = Mirror) ->
    Adopted = adopt(Path, Mirror),
    case {Nodes, entry(Mirror, local, Path)} of
        {#{Path := _}, _} -> Adopted;
        {_, {dir, _}} -> made(Path, Adopted);
        _ -> Adopted
    end.

%% What is in it is looked at next.
made(Dir, #{made := Made} = Mirror) -> Mirror#{made := [Dir | Made]}.

%% A deletion follows what the other side does not have; so that side must be
%% there, with its marker, and must still not have it. What goes is looked at
%% last: whoever works on it meanwhile would lose that.
remove(Side, Path, Remove, Action, Mirror) ->
    Other = engine_plan:other(Side),
    case now(Mirror, Other, Path) =:= entry(Mirror, Other, Path)
        andalso roots_stand(Mirror)
        andalso as_agreed(Side, Path, Mirror)
        andalso now(Mirror, Side, Path) =:= entry(Mirror, Side, Path) of
        false -> disturbed(Path, Mirror);
        true ->
            case Remove(absolute(Mirror, Side, Path)) of
                ok ->
                    disturbed(Path, forget(Path, set_entry(Side, Path, absent, Mirror)));
                {error, eexist} -> look_again(Path, disturbed(Path, Mirror));
                {error, Reason} -> failed(Action, Reason, Mirror)
            end
    end.

freed(cloud, {file, {Size, _, _, _}}) -> Size;
freed(_, _) -> 0.

roots_stand(#{tree := Tree} = Mirror) ->
    {LocalToken, CloudToken} = engine_tree:tokens(Tree),
    engine_roots:stands(maps:get(local, Mirror), LocalToken)
        andalso engine_roots:stands(maps:get(cloud, Mirror), CloudToken).

%% Both sides hold the same: remember it.
adopt(Path, #{nodes := Nodes} = Mirror) ->
    Known = maps:get(Path, Nodes, none),
    {Hash, LocalSeen} = content(local, Path, Known, Mirror),
    {_, CloudSeen} = content(cloud, Path, Known, Mirror),
    case {entry(Mirror, local, Path), entry(Mirror, cloud, Path)} of
        {{Kind, LocalSig}, {Kind, CloudSig}} ->
            remember(Path, #{kind => Kind, hash => Hash, local => {LocalSig, LocalSeen},
                             cloud => {CloudSig, CloudSeen}}, Mirror);
        _ -> disturbed(Path, Mirror)
    end.

remember(Path, Base, #{stuck := Stuck, later := Later} = Mirror) ->
    #{kind := Kind, local := {Local, _}, cloud := {Cloud, _}} = Base,
    Dir = engine_path:parent(Path),
    Tells = case engine_plan:news(Base, {Kind, Local}, {Kind, Cloud}, erlang:system_time(second)) of
                {later, Second} -> Later#{Dir => max(Second, maps:get(Dir, Later, 0))};
                _ -> Later
            end,
    change({put, Path, Base}, Mirror#{stuck := maps:remove(Path, Stuck), later := Tells}).

forget(Path, #{stuck := Stuck} = Mirror) ->
    change({drop, Path}, Mirror#{stuck := maps:remove(Path, Stuck)}).

content(Side, Path, Known, Mirror) ->
    case {maps:get(hashes, Mirror, #{}), Known} of
        {#{{Side, Path} := {Hash, Read}}, _} -> {Hash, Read};
        {_, #{kind := file, hash := Hash, Side := {_, Before}}} -> {Hash, Before};
        _ -> {<<>>, erlang:system_time(second)}
    end.

as_agreed(Side, Path, #{tree := Tree} = Mirror) ->
    as_agreed(Side, absolute(Mirror, Side, Path), entry(Mirror, Side, Path), engine_tree:get(Path, Tree)).

as_agreed(_, _, _, #{kind := dir}) -> true;
as_agreed(Side, Absolute, Entry, #{hash := Hash} = Base) ->
    #{Side := {Sig, _}} = Base,
    (Entry =:= {file, Sig} andalso not engine_plan:may_differ(Side, Base))
        orelse engine_file:hash(Absolute) =:= {ok, Hash};
as_agreed(_, _, _, none) -> false.

rename(Side, From, To, Action, Mirror) ->
    case engine_file:rename(absolute(Mirror, Side, From), absolute(Mirror, Side, To)) of
        ok -> renamed(Side, From, To, Mirror);
        {error, Reason} -> failed(Action, Reason, Mirror)
    end.

renamed(Side, From, To, Mirror) ->
    #{views := Views, tree := Tree} = Moved = flush(change({move, From, To}, Mirror)),
    Entry = now(Moved, Side, To),
    Rekey = case Entry of
                {dir, _} -> fun(Entries) -> engine_path:move_keys(From, To, Entries) end;
                _ -> fun(Entries) -> maps:remove(From, Entries) end
            end,
    Seen = set_entry(Side, To, Entry, Moved#{views := on_view(Side, Views, Rekey)}),
    case {engine_tree:get(To, Tree), Entry} of
        {#{Side := {_, Read}} = Base, {Kind, Sig}} ->
            Followed = remember(To, Base#{Side := {Sig, Read}}, Seen),
            case {Kind, Followed} of
                {dir, #{recalled := true, moved := Dirs}} ->
                    forget_missing(Side, To, flush(Followed#{moved := [To | Dirs]}));
                {dir, #{moved := Dirs}} -> Followed#{moved := [To | Dirs]};
                _ -> Followed
            end;
        _ -> disturbed(To, Seen)
    end.

%% What a renamed directory lacks may have been deleted by an earlier engine that
%% was killed before it could remember that, in favour of the new name. So it is
%% taken for new, and not for deleted here, unless it is renamed itself.
forget_missing(Side, Dir, #{tree := Tree, moves := Moves} = Mirror) ->
    Moving = [From || {move, _, From, _} <- Moves],
    Missing = [Path || {Path, _} <- engine_tree:below(Dir, Tree),
                       entry(Mirror, Side, Path) =:= absent,
                       not lists:any(fun(From) -> Path =:= From orelse engine_path:is_below(Path, From)
                                                      orelse engine_path:is_below(From, Path) end, Moving)],
    flush(lists:foldl(fun forget/2, Mirror, Missing)).

%% ---- Copies ----------------------------------------------------------------

copy_all([], Mirror) -> Mirror;
copy_all(Copies, Mirror0) ->
    {Jobs, #{opener := Opener, rate := Rate} = Mirror} =
        lists:foldl(fun prepare/2, {[], Mirror0#{space := space(Mirror0)}}, Copies),
    Workers = case Rate of
                  unlimited -> workers(Jobs);
                  _ -> 1
              end,
    engine_pool:run(Workers, bundles(lists:reverse(Jobs), max(1, min(?BUNDLE, length(Jobs) div (2 * Workers)))),
                    fun(Bundle, Tell) -> do_copies([Job || {_, _, Job} <- Bundle], Rate, Opener, Tell) end,
                    fun({told, _, Bytes}, Acc) -> {[], moved(Bytes, Acc)};
                       ({done, Bundle, Results}, Acc) -> {[], lists:foldl(fun one_copied/2, Acc, lists:zip(Bundle, Results))}
                    end, Mirror).

bundles([], _) -> [];
bundles(Jobs, Count) when length(Jobs) =< Count -> [Jobs];
bundles(Jobs, Count) ->
    {Bundle, Rest} = lists:split(Count, Jobs),
    [Bundle | bundles(Rest, Count)].

one_copied({{Side, Path, #{seen := {Size, _, _, _}} = Job}, {Copied, Untold}}, Mirror) ->
    Done = copied(Side, Path, Job, Copied, one_less(Side, moved(Untold, Mirror))),
    case Size >= ?LARGE of
        true -> flush(Done);
        false -> Done
    end.

%% The room that a copy will take is taken at once, for those after it.
prepare({copy, Side, Path} = Action, {Jobs, #{space := Space, prefix := Prefix, tree := Tree, nodes := Nodes} = Mirror}) ->
    Other = engine_plan:other(Side),
    {file, {Size, _, _, _} = Sig} = entry(Mirror, Other, Path),
    Expect = entry(Mirror, Side, Path),
    Growth = case Side of
                 cloud -> Size - freed(cloud, Expect);
                 local -> 0
             end,
    case Growth =< 0 orelse Space + Growth =< maps:get(quota, Mirror) of
        false -> {Jobs, skipped(Size, failed(Action, quota, Mirror))};
        true ->
            Temp = <<Prefix/binary, "-", (integer_to_binary(erlang:unique_integer([positive])))/binary, ".part">>,
            Job = #{from => absolute(Mirror, Other, Path), seen => Sig, to => absolute(Mirror, Side, Path),
                    expect => Expect, temp => engine_file:join(cache_dir(Mirror, Side), Temp),
                    side => Side, base => maps:get(Path, Nodes, none),
                    root => {maps:get(Side, Mirror), token(Side, Tree)}},
            {[{Side, Path, Job} | Jobs], Mirror#{space := max(0, Space + Growth)}}
    end.

token(local, Tree) -> element(1, engine_tree:tokens(Tree));
token(cloud, Tree) -> element(2, engine_tree:tokens(Tree)).

%% Small files go together.
do_copies(Jobs, Rate, Opener, Tell) ->
    Together = Rate =:= unlimited andalso Opener =:= fun file:open/2
        andalso lists:all(fun engine_copy:is_small/1, Jobs)
        andalso lists:all(fun({Root, Token}) -> engine_roots:stands(Root, Token) end,
                          lists:usort([Root || #{root := Root} <- Jobs])),
    Started = erlang:system_time(second),
    Results = case Together of
                  true -> engine_copy:small(Jobs);
                  false -> [{error, enotsup} || _ <- Jobs]
              end,
    Written = erlang:system_time(second),
    lists:zipwith(fun(Job, {error, enotsup}) -> do_copy(Job, Rate, Opener, Tell);
                     (#{seen := {Size, _, _, _}}, {ok, _, _} = Copied) -> {{Copied, Started, Written}, Size};
                     (_, Failed) -> {{Failed, Started, Written}, none}
                  end, Jobs, Results).

do_copy(#{side := Side, seen := {Size, _, _, _}, to := To, expect := Expect, base := Base, root := {Root, Token}} = Job, Rate, Opener, Tell) ->
    Started = erlang:system_time(second),
    Allowed = fun() ->
                      engine_roots:stands(Root, Token) andalso (Expect =:= absent orelse as_agreed(Side, To, Expect, Base))
              end,
    %% A message a small file would cost as much as the file.
    Count = fun(0, none) when Size >= ?TOLD_BYTES -> Tell(0), 0;
               (0, none) -> 0;
               (Bytes, Untold) when Bytes + Untold < ?TOLD_BYTES -> Bytes + Untold;
               (Bytes, Untold) -> Tell(Bytes + Untold), 0
            end,
    {Copied, Untold} = engine_copy:copy(Job, Rate, Opener, Count, none, Allowed),
    {{Copied, Started, erlang:system_time(second)}, Untold}.

copied(Side, Path, #{seen := Sig}, {{ok, Hash, NewSig}, Started, Written}, Mirror) ->
    Marks = #{Side => {NewSig, Written}, engine_plan:other(Side) => {Sig, Started}},
    remember(Path, maps:merge(#{kind => file, hash => Hash}, Marks), set_entry(Side, Path, {file, NewSig}, Mirror));
copied(Side, Path, _, {{error, Reason}, _, _}, Mirror) ->
    case Reason of
        changed -> disturbed(Path, Mirror);
        root_changed -> disturbed(Path, Mirror);
        _ -> failed({copy, Side, Path}, Reason, Mirror)
    end.

free_name(Mirror, Path, Time, Try) ->
    Name = engine_path:conflict_name(Path, Time, Try),
    case {now(Mirror, local, Name), now(Mirror, cloud, Name)} of
        {absent, absent} -> Name;
        _ -> free_name(Mirror, Path, Time, Try + 1)
    end.

%% Something is not as it was seen: that directory is looked at again.
disturbed(Path, Mirror) -> look_again(engine_path:parent(Path), Mirror#{again := true}).

look_again(Dir, #{disturbed := Told} = Mirror) when is_map_key(Dir, Told) -> Mirror;
look_again(Dir, #{disturbed := Told, report := Report} = Mirror) ->
    Report({look_again, Dir}),
    Mirror#{disturbed := Told#{Dir => true}}.

failed(Action, Reason, #{report := Report, stuck := Stuck} = Mirror) ->
    Report({failed, Action, Reason}),
    Path = element(3, Action),
    Mirror#{stuck := Stuck#{Path => {entry(Mirror, local, Path), entry(Mirror, cloud, Path)}}}.

%% ---- Views -----------------------------------------------------------------

absolute(Mirror, Side, Path) -> engine_file:join(maps:get(Side, Mirror), Path).

now(#{alike := Alike} = Mirror, Side, Path) ->
    case engine_file:look(absolute(Mirror, Side, Path)) of
        absent -> absent;
        Found ->
            case not sets:is_element(Path, Alike) orelse stands_there(Mirror, Side, Path) of
                true -> Found;
                false -> absent
            end
    end.

stands_there(Mirror, Side, Path) ->
    case engine_file:list(absolute(Mirror, Side, engine_path:parent(Path))) of
        {ok, Names} -> lists:member(engine_path:name(Path), Names);
        {error, _} -> true
    end.

entry(#{views := {{Local, _}, _}}, local, Path) -> maps:get(Path, Local, absent);
entry(#{views := {_, {Cloud, _}}}, cloud, Path) -> maps:get(Path, Cloud, absent).

set_entry(Side, Path, Entry, #{views := Views} = Mirror) ->
    Set = fun(Entries) ->
                  case Entry of
                      absent -> maps:remove(Path, Entries);
                      {error, _} -> maps:remove(Path, Entries);
                      _ -> Entries#{Path => Entry}
                  end
          end,
    Mirror#{views := on_view(Side, Views, Set)}.

on_view(local, {{Local, Unknown}, Cloud}, Fun) -> {{Fun(Local), Unknown}, Cloud};
on_view(cloud, {Local, {Cloud, Unknown}}, Fun) -> {Local, {Fun(Cloud), Unknown}}.

%% ---- Progress --------------------------------------------------------------

progress({Cloud, Local, Bytes}) ->
    #{cloud => Cloud, local => Local, left => Bytes, moved => 0,
      started => erlang:monotonic_time(millisecond), told => never}.

%% What a batch was thought to need, and what it does.
expect({Cloud, Local, Bytes}, Copies, #{progress := Progress} = Mirror) ->
    #{cloud := Ups, local := Downs, left := Left} = Progress,
    Sizes = [Size || {copy, Side, Path} <- Copies,
                     {file, {Size, _, _, _}} <- [entry(Mirror, engine_plan:other(Side), Path)]],
    Up = length([1 || {copy, cloud, _} <- Copies]),
    Mirror#{progress := Progress#{cloud := max(0, Ups - Cloud) + Up,
                                  local := max(0, Downs - Local) + length(Copies) - Up,
                                  left := max(0, Left - Bytes) + lists:sum(Sizes)}}.

%% Nothing is said before a first source could be opened, so files that wait
%% for permission or room do not make the client flicker.
moved(none, Mirror) -> Mirror;
moved(Bytes, #{report := Report, progress := #{left := Left, moved := Moved, told := Told} = Progress} = Mirror) ->
    Now = erlang:monotonic_time(millisecond),
    Next = Progress#{left := max(0, Left - Bytes), moved := Moved + Bytes},
    case Told of
        %% How fast it goes is not known yet.
        never -> Report({progress, figures(Progress, Now)}), Mirror#{progress := Next#{told := Now}};
        _ when Now - Told >= ?REPORT_MS -> Report({progress, figures(Next, Now)}), Mirror#{progress := Next#{told := Now}};
        _ -> Mirror#{progress := Next}
    end.

figures(#{cloud := Up, local := Down, left := Left, moved := Moved, started := Started}, Now) ->
    Bps = Moved * 1000 div max(1, Now - Started),
    Remaining = case Bps of
                    0 -> 0;
                    _ -> (Left + Bps - 1) div Bps
                end,
    #{uploads => Up, downloads => Down, bps => min(Bps, 16#7FFFFFFF),
      timerem => min(Remaining, 16#7FFFFFFF)}.

one_less(Side, #{progress := Progress} = Mirror) ->
    Mirror#{progress := maps:update_with(Side, fun(N) -> N - 1 end, Progress)}.

skipped(Size, #{progress := #{left := Left} = Progress} = Mirror) ->
    one_less(cloud, Mirror#{progress := Progress#{left := max(0, Left - Size)}}).
