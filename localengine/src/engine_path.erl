%% Paths inside a root: names joined with "/", the root itself is empty.
-module(engine_path).

-export([parent/1, name/1, ancestors/1, child/2, is_below/2, depth/1,
         move_keys/3, relative/2, conflict_name/3]).

-spec parent(binary()) -> binary().
parent(Path) ->
    case filename:dirname(Path) of
        <<".">> -> <<>>;
        Parent -> Parent
    end.

-spec name(binary()) -> binary().
name(Path) -> filename:basename(Path).

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
relative(Path, Root) ->
    Names = names(Path),
    RootNames = names(Root),
    case lists:prefix(RootNames, Names)
        andalso not lists:member(<<"..">>, Names) of
        true ->
            Inside = lists:nthtail(length(RootNames), Names),
            iolist_to_binary(lists:join($/, Inside));
        false -> outside
    end.

names(Path) ->
    [Name || Name <- filename:split(Path), Name =/= <<".">>].

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
