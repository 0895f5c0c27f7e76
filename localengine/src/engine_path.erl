%% Paths inside a root: names joined with "/", the root itself is empty.
-module(engine_path).

-export([parent/1, name/1, ancestors/1, child/2, is_below/2, depth/1,
         move_keys/3, relative/2, relative/3, conflict_name/3]).

%% Not by the module "filename", which takes names apart as the system that it
%% runs on does: what one side is called may mean something else on the other.
-spec parent(binary()) -> binary().
parent(Path) ->
    case binary:matches(Path, <<"/">>) of
        [] -> <<>>;
        Slashes -> {Size, 1} = lists:last(Slashes), binary:part(Path, 0, Size)
    end.

-spec name(binary()) -> binary().
name(Path) -> lists:last(binary:split(Path, <<"/">>, [global])).

-spec child(binary(), binary()) -> binary().
child(<<>>, Name) -> Name;
child(Dir, Name) -> <<Dir/binary, "/", Name/binary>>.

%% The directories above a path, outermost first, without the root.
-spec ancestors(binary()) -> [binary()].
ancestors(Path) -> ancestors(parent_of(Path), []).

ancestors(<<>>, Found) -> Found;
ancestors(Path, Found) -> ancestors(parent_of(Path), [Path | Found]).

parent_of(<<>>) -> <<>>;
parent_of(Path) -> parent(Path).

%% Everything but the root itself lies below the root.
-spec is_below(binary(), binary()) -> boolean().
is_below(<<>>, <<>>) -> false;
is_below(_, <<>>) -> true;
is_below(Path, Dir) ->
    Size = byte_size(Dir),
    case Path of
        <<Dir:Size/binary, "/", _/binary>> -> true;
        _ -> false
    end.

-spec depth(binary()) -> non_neg_integer().
depth(Path) -> length(binary:matches(Path, <<"/">>)).

%% The map with a path and all that lies below it found under another path.
-spec move_keys(binary(), binary(), #{binary() => V}) -> #{binary() => V}.
move_keys(From, To, Map) ->
    Size = byte_size(From),
    maps:fold(
      fun(Path, Value, Moved) ->
              case Path of
                  From ->
                      maps:put(To, Value, maps:remove(From, Moved));
                  <<From:Size/binary, "/", Rest/binary>> ->
                      maps:put(child(To, Rest), Value, maps:remove(Path, Moved));
                  _ -> Moved
              end
      end, Map, Map).

%% Where an absolute path of the client lies inside a root.
-spec relative(binary(), binary()) -> binary() | outside.
relative(Path, Root) -> relative(Path, Root, engine_names:system()).

-spec relative(binary(), binary(), engine_names:system()) -> binary() | outside.
relative(Path, Root, System) ->
    Names = names(Path, System),
    RootNames = names(Root, System),
    case lists:prefix(same_case(RootNames, System), same_case(Names, System))
        andalso not lists:member(<<"..">>, Names) of
        true ->
            Inside = lists:nthtail(length(RootNames), Names),
            iolist_to_binary(lists:join($/, Inside));
        false -> outside
    end.

names(Path, System) ->
    %% The first name of an absolute path is empty, or the drive.
    [First | Names] = binary:split(Path, separators(System), [global]),
    [First | [Name || Name <- Names, Name =/= <<".">>, Name =/= <<>>]].

separators(windows) -> [<<"/">>, <<"\\">>];
separators(other) -> <<"/">>.

%% The client says paths as it was told the root; the file manager as it likes.
same_case(Names, windows) -> [engine_names:fold(Name) || Name <- Names];
same_case(Names, other) -> Names.

%% Most file systems take no longer names than this.
-define(MAX_NAME, 255).

%% "report.txt" becomes "report (conflict 2026-11-21 10.15.00).txt"; Try
%% numbers further names for the same second.
-spec conflict_name(binary(), calendar:datetime(), pos_integer()) -> binary().
conflict_name(Path, {{Y, Mo, D}, {H, Mi, S}}, Try) ->
    Name = name(Path),
    {Stem, Extension} = split_extension(Name),
    Number = case Try of
                 1 -> "";
                 _ -> io_lib:format(" ~b", [Try])
             end,
    Note = io_lib:format(" (conflict ~4..0b-~2..0b-~2..0b ~2..0b.~2..0b.~2..0b~s)",
                         [Y, Mo, D, H, Mi, S, Number]),
    Room = ?MAX_NAME - iolist_size(Note) - byte_size(Extension),
    child(parent(Path), iolist_to_binary([cut(Stem, Room), Note, Extension])).

%% The start of a name that fits, without half a character at its end.
cut(Stem, Room) when byte_size(Stem) =< Room -> Stem;
cut(Stem, Room) when Room > 0 ->
    case Stem of
        <<_:Room/binary, 2#10:2, _:6, _/binary>> -> cut(Stem, Room - 1);
        <<Start:Room/binary, _/binary>> -> Start
    end;
cut(_, _) -> <<>>.

split_extension(Name) ->
    %% Not every dot begins an extension: the note itself holds some.
    case re:run(Name, "^(?s:.+)(\\.[A-Za-z0-9]{1,10})$", [{capture, [1]}, dollar_endonly]) of
        {match, [{Size, _}]} -> split_binary(Name, Size);
        nomatch -> {Name, <<>>}
    end.
