%% One pass of the mirror: looks at both sides, asks the planner and carries
%% its actions out, checking before each one that the world is still as seen.
%% Whatever it does can be cut off at any moment: a pass that starts with what
%% was left finds either the old state or the new one, never half of it.
-module(engine_mirror).

-export([new/1, pass/3]).

-export_type([mirror/0, options/0, result/0]).

-type options() :: #{uid := pos_integer(), local := binary(), cloud := binary(),
                     tree := engine_tree:tree(), quota := non_neg_integer(),
                     rate := pos_integer() | unlimited,
                     opener := fun(), report := fun((term()) -> ok),
                     system => engine_names:system()}.
-type result() :: {blocked, local | cloud}
                | {done, #{space := non_neg_integer(),
                           scan_ms := non_neg_integer(),  % what a look costs
                           retry := boolean(),    % something could not be done yet
                           again := boolean()}}.  % something moved meanwhile
-opaque mirror() :: #{atom() => term()}.

-define(REPORT_MS, 300).

-spec new(options()) -> mirror().
new(Options) ->
    Prefix = binary:encode_hex(binary:part(crypto:hash(sha256, maps:get(local, Options)), 0, 6)),
    Mirror = Options#{views => none, settled => false, recalled => true, moves => [], retry => false,
                      again => false, temps => 0, prefix => Prefix, progress => none,
                      space => 0, scan_ms => 0, alike => sets:new(), held => [],
                      system => maps:get(system, Options, engine_names:system())},
    [clean(Mirror, Side) || Side <- [local, cloud]],
    Mirror.

%% Temporary files of an earlier run; other engines on the same cloud have
%% their own prefix.
clean(#{prefix := Prefix} = Mirror, Side) ->
    Cache = cache_dir(Mirror, Side),
    Size = byte_size(Prefix),
    case engine_file:list(Cache) of
        {ok, Names} ->
            [file:delete(engine_file:join(Cache, Name))
             || <<Start:Size/binary, _/binary>> = Name <- Names, Start =:= Prefix];
        {error, _} -> []
    end.

cache_dir(Mirror, Side) ->
    engine_file:join(maps:get(Side, Mirror), engine_file:cache_name()).

%% Dirs are the directories of the local side to look at again, or "all";
%% Force plans even when nothing seems to have changed.
-spec pass([binary()] | all, boolean(), mirror()) -> {result(), mirror()}.
pass(Dirs, Force, Mirror0) ->
    case bind(Mirror0) of
        {blocked, Side} -> {{blocked, Side}, Mirror0#{views := none}};
        {ok, Mirror1} ->
            Mirror2 = look(Dirs, Mirror1#{retry := false, again := false}),
            Same = maps:get(views, Mirror2) =:= maps:get(views, Mirror1),
            case Same andalso not Force andalso is_settled(Mirror1, Mirror2) of
                true -> {result(Mirror2), Mirror2};
                false -> work(Mirror2)
            end
    end.

%% With what is known by a later look.
is_settled(#{settled := {until, Second}}, #{seen := Seen}) -> Seen < Second;
is_settled(#{settled := Settled}, _) -> Settled.

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
                        _ ->
                            {ok, change({bind, Tokens}, Mirror#{views := none})}
                    end;
                {{error, _}, _} -> {blocked, local};
                {_, {error, _}} -> {blocked, cloud}
            end
    end.

claim(_, _, {marked, Uid, Token}, Uid) -> {ok, Token};
claim(Mirror, Side, _, Uid) -> engine_roots:claim(maps:get(Side, Mirror), Uid).

%% The tree here and its twin at the receiver of the reports go in step.
change(Delta, #{tree := Tree, report := Report} = Mirror) ->
    Report({tree, Delta}),
    Mirror#{tree := engine_tree:change(Delta, Tree)}.

look(Dirs, #{local := Local, cloud := Cloud, views := Views} = Mirror) ->
    Started = erlang:monotonic_time(millisecond),
    Seen = erlang:system_time(second),
    LocalView = case {Views, Dirs} of
                    {none, _} -> engine_scan:full(Local);
                    {_, all} -> engine_scan:full(Local);
                    {{{_, Unknown} = Old, _}, _} ->
                        engine_scan:partial(Local, Unknown ++ Dirs, Old)
                end,
    CloudView = engine_scan:full(Cloud),
    Mirror#{views := {LocalView, CloudView}, seen => Seen,
            scan_ms := erlang:monotonic_time(millisecond) - Started,
            space := engine_scan:size(CloudView)}.

result(#{space := Space, scan_ms := ScanMs, retry := Retry, again := Again,
         views := {{_, U1}, {_, U2}}}) ->
    {done, #{space => Space, scan_ms => ScanMs, retry => Retry orelse U1 ++ U2 =/= [], again => Again}}.

work(Mirror0) ->
    #{views := {L, C}, tree := Tree, system := System} = Mirror0,
    {L0, C0, Refused} = engine_names:refused(System, L, C),
    Moves = engine_plan:moves(engine_tree:nodes(Tree), L0, C0),
    Mirror1 = run(Moves, Mirror0#{moves := Moves, alike := alike(Mirror0)}),
    {L1, C1, Nodes, Clashing} = without_what_clashes(Mirror1),
    {Hashes, Mirror2} = read_all(engine_plan:doubts(Nodes, L1, C1), held(Refused ++ Clashing, Mirror1)),
    Actions = engine_plan:plan(Nodes, L1, C1, Hashes),
    Mirror3 = run(Actions, Mirror2#{hashes => Hashes, progress := progress(Actions, Mirror2)}),
    #{retry := Retry, again := Again} = Mirror3,
    Settled = not (Retry orelse Again) andalso settled(Mirror3),
    %% Once all is done, the tree is that of this engine, and as it is.
    Recalled = maps:get(recalled, Mirror3) andalso Settled =:= false,
    {Result, Mirror4} = {result(Mirror3), Mirror3#{settled := Settled, recalled := Recalled,
                                                   moves := [], progress := none}},
    {Result, maps:remove(hashes, Mirror4)}.

without_what_clashes(#{views := {Local, Cloud}, tree := Tree, system := System}) ->
    Nodes = engine_tree:nodes(Tree),
    {L0, C0, _} = engine_names:refused(System, Local, Cloud),
    {L1, C1, Clashing} = engine_names:clashing(System, Nodes, L0, C0),
    {L1, C1, Nodes, Clashing}.

%% What is seen under one of these may stand there under another: looking at it
%% takes looking at the directory.
alike(#{system := other}) -> sets:new();
alike(#{views := {{Local, _}, {Cloud, _}}, tree := Tree}) ->
    Paths = lists:append([maps:keys(Map) || Map <- [Local, Cloud, engine_tree:nodes(Tree)]]),
    sets:from_list(lists:append(engine_names:alike(Paths))).

%% Each is told once, and again after it was gone.
held(Held, #{held := Told, report := Report} = Mirror) ->
    [Report({held, Path, Reason}) || {Path, Reason} <- Held -- Told],
    Mirror#{held := Held}.

settled(#{tree := Tree, views := {Local, Cloud}, seen := Seen}) ->
    case engine_plan:fresh_until(engine_tree:nodes(Tree), Local, Cloud, Seen) of
        none -> true;
        Second -> {until, Second}
    end.

read_all(Doubts, Mirror) ->
    lists:foldl(
      fun({Side, Path}, {Hashes, M}) ->
              Seen = erlang:system_time(second),
              Absolute = absolute(M, Side, Path),
              Entry = entry(M, Side, Path),
              case {read_hash(Absolute, M), engine_file:look(Absolute)} of
                  {{ok, Hash}, Entry} -> {Hashes#{{Side, Path} => {Hash, Seen}}, M};
                  {{ok, _}, _} -> {Hashes#{{Side, Path} => error}, disturbed(Path, M)};
                  {{error, Reason}, _} ->
                      {Hashes#{{Side, Path} => error}, failed({read, Side, Path}, Reason, M)}
              end
      end, {#{}, Mirror}, Doubts).

read_hash(Absolute, #{opener := Opener}) ->
    %% The same door as for copying, so that a file which cannot be read is
    %% refused in both places.
    case Opener(Absolute, [read, raw, binary]) of
        {ok, File} ->
            _ = file:close(File),
            engine_file:hash(Absolute);
        {error, Reason} -> {error, Reason}
    end.

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
            case file:make_dir(absolute(Mirror, Side, Path)) of
                ok -> adopt(Path, set_entry(Side, Path, now(Mirror, Side, Path), Mirror));
                {error, Reason} -> failed(Action, Reason, Mirror)
            end;
        _ -> disturbed(Path, Mirror)
    end;
act({aside, Side, Path} = Action, Mirror) ->
    case now(Mirror, Side, Path) =:= entry(Mirror, Side, Path) of
        false -> disturbed(Path, Mirror);
        true ->
            Free = free_name(Mirror, Path, calendar:local_time(), 1),
            case file:rename(absolute(Mirror, Side, Path), absolute(Mirror, Side, Free)) of
                ok -> disturbed(Path, Mirror);
                {error, Reason} -> failed(Action, Reason, Mirror)
            end
    end;
act({delete, Side, Path} = Action, Mirror) ->
    remove(Side, Path, fun engine_file:delete/1, Action, Mirror);
act({rmdir, Side, Path} = Action, Mirror) ->
    remove(Side, Path, fun file:del_dir/1, Action, Mirror);
act({forget, Path}, Mirror) -> change({drop, Path}, Mirror);
act({adopt, Path}, Mirror) -> adopt(Path, Mirror);
act({copy, Side, Path} = Action, Mirror) -> copy(Side, Path, Action, Mirror).

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
                    Freed = freed(Side, entry(Mirror, Side, Path)),
                    #{space := Space} = Removed = set_entry(Side, Path, absent, Mirror),
                    change({drop, Path}, Removed#{space := Space - Freed,
                                                  again := true});
                {error, eexist} ->
                    #{report := Report} = Mirror,
                    Report({look_again, Path}),
                    disturbed(Path, Mirror);
                {error, Reason} -> failed(Action, Reason, Mirror)
            end
    end.

freed(cloud, {file, {Size, _, _, _}}) -> Size;
freed(_, _) -> 0.

roots_stand(#{tree := Tree} = Mirror) ->
    {LocalToken, CloudToken} = engine_tree:tokens(Tree),
    has_token(maps:get(local, Mirror), LocalToken)
        andalso has_token(maps:get(cloud, Mirror), CloudToken).

has_token(Root, Token) ->
    case engine_roots:check(Root) of
        {marked, _, Token} -> true;
        _ -> false
    end.

%% Both sides hold the same: remember it.
adopt(Path, #{tree := Tree} = Mirror) ->
    Known = engine_tree:get(Path, Tree),
    {Hash, LocalSeen} = content(local, Path, Known, Mirror),
    {_, CloudSeen} = content(cloud, Path, Known, Mirror),
    case {entry(Mirror, local, Path), entry(Mirror, cloud, Path)} of
        {{Kind, LocalSig}, {Kind, CloudSig}} ->
            change({put, Path, #{kind => Kind, hash => Hash, local => {LocalSig, LocalSeen},
                                 cloud => {CloudSig, CloudSeen}}}, Mirror);
        _ -> disturbed(Path, Mirror)
    end.

content(Side, Path, Known, #{seen := Seen} = Mirror) ->
    case {maps:get(hashes, Mirror, #{}), Known} of
        {#{{Side, Path} := {Hash, Read}}, _} -> {Hash, Read};
        {_, #{kind := file, hash := Hash, Side := {_, Before}}} -> {Hash, Before};
        _ -> {<<>>, Seen}
    end.

as_agreed(Side, Path, #{tree := Tree} = Mirror) ->
    case engine_tree:get(Path, Tree) of
        #{kind := dir} -> true;
        #{hash := Hash, Side := {Sig, _}} = Base ->
            (entry(Mirror, Side, Path) =:= {file, Sig} andalso not engine_plan:may_differ(Side, Base))
                orelse engine_file:hash(absolute(Mirror, Side, Path)) =:= {ok, Hash};
        none -> false
    end.

rename(Side, From, To, Action, Mirror) ->
    case file:rename(absolute(Mirror, Side, From), absolute(Mirror, Side, To)) of
        ok -> renamed(Side, From, To, Mirror);
        {error, Reason} -> failed(Action, Reason, Mirror)
    end.

renamed(Side, From, To, Mirror) ->
    Moved = change({move, From, To}, Mirror),
    #{views := Views} = Moved,
    Views1 = on_view(Side, Views, fun(Entries) -> engine_path:move_keys(From, To, Entries) end),
    Entry = now(Mirror, Side, To),
    Seen = set_entry(Side, To, Entry, Moved#{views := Views1}),
    case {engine_tree:get(To, maps:get(tree, Seen)), Entry} of
        {#{} = Base, {Kind, Sig}} ->
            %% What changed in it just before was reported under its old name.
            _ = Kind =:= dir andalso Side =:= local andalso (maps:get(report, Seen))({look_again, all}),
            #{Side := {_, Read}} = Base,
            Followed = change({put, To, Base#{Side := {Sig, Read}}}, Seen),
            case Kind =:= dir andalso maps:get(recalled, Mirror) of
                true -> forget_missing(Side, To, Followed);
                false -> Followed
            end;
        _ -> disturbed(To, Seen)
    end.

%% What a renamed directory lacks may have been deleted by an earlier engine that
%% was killed before it could remember that, in favour of the new name. So it is
%% taken for new, and not for deleted here, unless it is renamed itself.
forget_missing(Side, Dir, #{tree := Tree, moves := Moves} = Mirror) ->
    Moving = [From || {move, _, From, _} <- Moves],
    Missing = [Path || Path <- maps:keys(engine_tree:nodes(Tree)), engine_path:is_below(Path, Dir),
                       entry(Mirror, Side, Path) =:= absent,
                       not lists:any(fun(From) -> Path =:= From orelse engine_path:is_below(Path, From) end,
                                     Moving)],
    lists:foldl(fun(Path, M) -> change({drop, Path}, M) end, Mirror, Missing).

copy(Side, Path, Action, #{opener := Opener, rate := Rate, temps := Temps,
                           prefix := Prefix} = Mirror) ->
    {file, Sig} = entry(Mirror, engine_plan:other(Side), Path),
    Expect = entry(Mirror, Side, Path),
    Size = element(1, Sig),
    case fits(Side, Size, Expect, Mirror) of
        false -> skipped(Size, failed(Action, quota, Mirror));
        true ->
            Temp = engine_file:join(cache_dir(Mirror, Side),
                                    <<Prefix/binary, "-", (integer_to_binary(Temps))/binary,
                                      ".part">>),
            Job = #{from => absolute(Mirror, engine_plan:other(Side), Path), seen => Sig,
                    to => absolute(Mirror, Side, Path), expect => Expect, temp => Temp},
            Started = erlang:system_time(second),
            {Copied, Progress} =
                engine_copy:copy(Job, Rate, Opener, teller(Side, Mirror),
                                 maps:get(progress, Mirror),
                                 fun() ->
                                         roots_stand(Mirror)
                                             andalso (Expect =:= absent
                                                      orelse as_agreed(Side, Path, Mirror))
                                 end),
            Told = Mirror#{progress := Progress, temps := Temps + 1},
            copied(Side, Path, Action, Copied, Sig, Started, one_less(Side, Told))
    end.

copied(Side, Path, _, {ok, Hash, NewSig}, Sig, Started, Mirror) ->
    Written = erlang:system_time(second),
    Marks = #{Side => {NewSig, Written}, engine_plan:other(Side) => {Sig, Started}},
    Base = maps:merge(#{kind => file, hash => Hash}, Marks),
    #{space := Space} = Mirror,
    Grown = case Side of
                cloud -> Space + element(1, NewSig) - freed(cloud, entry(Mirror, cloud, Path));
                local -> Space
            end,
    change({put, Path, Base}, set_entry(Side, Path, {file, NewSig}, Mirror#{space := Grown}));
copied(_, Path, _, {error, changed}, _, _, Mirror) -> disturbed(Path, Mirror);
copied(_, Path, _, {error, root_changed}, _, _, Mirror) -> disturbed(Path, Mirror);
copied(_, _, Action, {error, Reason}, _, _, Mirror) -> failed(Action, Reason, Mirror).

fits(local, _, _, _) -> true;
fits(cloud, Size, Expect, #{space := Space, quota := Quota}) ->
    Growth = Size - freed(cloud, Expect),
    Growth =< 0 orelse Space + Growth =< Quota.

free_name(Mirror, Path, Time, Try) ->
    Name = engine_path:conflict_name(Path, Time, Try),
    case {now(Mirror, local, Name), now(Mirror, cloud, Name)} of
        {absent, absent} -> Name;
        _ -> free_name(Mirror, Path, Time, Try + 1)
    end.

%% Something is not as it was seen: that directory is looked at again.
disturbed(Path, #{report := Report} = Mirror) ->
    Report({look_again, engine_path:parent(Path)}),
    Mirror#{again := true}.

failed(Action, Reason, #{report := Report} = Mirror) ->
    Report({failed, Action, Reason}),
    Mirror#{retry := true}.

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

progress(Actions, Mirror) ->
    Copies = [{Side, Path} || {copy, Side, Path} <- Actions],
    Left = lists:sum([element(1, Sig) || {Side, Path} <- Copies,
                                         {file, Sig} <- [entry(Mirror, engine_plan:other(Side),
                                                               Path)]]),
    #{cloud => length([1 || {cloud, _} <- Copies]), local => length([1 || {local, _} <- Copies]),
      left => Left, moved => 0, started => erlang:monotonic_time(millisecond), told => never}.

%% Nothing is said before a first source could be opened, so files that wait
%% for permission or room do not make the client flicker.
teller(_, #{report := Report}) ->
    fun(Bytes, #{left := Left, moved := Moved, told := Told} = Progress) ->
            Now = erlang:monotonic_time(millisecond),
            Next = Progress#{left := max(0, Left - Bytes), moved := Moved + Bytes},
            case Told =:= never orelse Now - Told >= ?REPORT_MS of
                true ->
                    Report({progress, figures(Next, Now)}),
                    Next#{told := Now};
                false -> Next
            end
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
