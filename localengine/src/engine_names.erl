%% What a system can hold under a name. A name that Windows cannot hold stays on
%% the side where it is, and is reported; nothing is renamed on that account.
-module(engine_names).

-export([system/0, refusal/2, is_own/1, fold/1, as_client/2, refused/3, clashing/4,
         alike/1]).

-export_type([system/0, reason/0]).

-type system() :: windows | other.
-type reason() :: reserved | ending | character | length | no_text | {case_of, binary()}.
-type held() :: {engine_scan:view(), engine_scan:view(), [{binary(), reason()}]}.

-define(MAX_NAME, 255).

-spec system() -> system().
system() ->
    case os:type() of
        {win32, _} -> windows;
        _ -> other
    end.

%% What both sides have for themselves, directly in a root: the engine's files,
%% and the one that gives the folder its icon on Windows.
-spec is_own(binary()) -> boolean().
is_own(Path) ->
    Path =:= engine_file:cache_name() orelse
        (byte_size(Path) =:= 11 andalso string:lowercase(Path) =:= <<"desktop.ini">>).

%% The client writes paths with "/", also on Windows.
-spec as_client(binary(), system()) -> binary().
as_client(Path, windows) -> binary:replace(Path, <<"\\">>, <<"/">>, [global]);
as_client(Path, other) -> Path.

%% Names that are the same for Windows are the same after this.
-spec fold(binary()) -> binary().
fold(Name) ->
    case unicode:characters_to_binary(Name) of
        Name -> string:uppercase(Name);
        _ -> Name
    end.

%% Why a system cannot hold a name.
-spec refusal(binary(), system()) -> none | reason().
refusal(_, other) -> none;
refusal(Name, windows) ->
    case unicode:characters_to_binary(Name, utf8, {utf16, little}) of
        Units when is_binary(Units), byte_size(Units) > 2 * ?MAX_NAME -> length;
        Units when is_binary(Units) ->
            case {has_refused(Name), lists:member(binary:last(Name), " ."), is_reserved(Name)} of
                {true, _, _} -> character;
                {_, true, _} -> ending;
                {_, _, true} -> reserved;
                _ -> none
            end;
        _ -> no_text
    end.

has_refused(Name) ->
    lists:any(fun(Byte) -> Byte < $\s orelse lists:member(Byte, "<>:\"/\\|?*") end,
              binary_to_list(Name)).

%% Devices, whatever follows a dot.
is_reserved(Name) ->
    [Stem | _] = binary:split(Name, <<".">>),
    re:run(string:trim(Stem, trailing, " "), "^(CON|PRN|AUX|NUL|CONIN\\$|CONOUT\\$|(COM|LPT)([1-9]|\\x{B9}|\\x{B2}|\\x{B3}))$",
           [caseless, unicode, dollar_endonly, {capture, none}]) =:= match.

%% The views of both sides with what the system cannot hold marked as not to be
%% touched, and what that is.
-spec refused(system(), engine_scan:view(), engine_scan:view()) -> held().
refused(other, Local, Cloud) -> {Local, Cloud, []};
refused(windows, Local, Cloud) ->
    marked([{Path, Reason} || Path <- paths(Local, Cloud),
                              Reason <- [refusal(engine_path:name(Path), windows)],
                              Reason =/= none], Local, Cloud).

%% The same for names that differ in case only. The one that both sides had before
%% is kept, or else the first.
-spec clashing(system(), #{binary() => term()}, engine_scan:view(), engine_scan:view()) -> held().
clashing(other, _, Local, Cloud) -> {Local, Cloud, []};
clashing(windows, Nodes, Local, Cloud) ->
    Seen = [Path || Path <- paths(Local, Cloud), not is_marked(Path, Local), not is_marked(Path, Cloud)],
    marked(lists:append([beside(keeper(Group, Nodes), Group) || Group <- alike(Seen)]), Local, Cloud).

%% The names of one directory that differ in case only, as lists of paths.
-spec alike([binary()]) -> [[binary()]].
alike(Paths) ->
    Groups = lists:foldr(
               fun(Path, Found) ->
                       Key = {engine_path:parent(Path), fold(engine_path:name(Path))},
                       maps:update_with(Key, fun(Others) -> [Path | Others] end, [Path], Found)
               end, #{}, lists:usort(Paths)),
    [Group || [_, _ | _] = Group <- maps:values(Groups)].

paths({Local, _}, {Cloud, _}) -> lists:usort(maps:keys(Local) ++ maps:keys(Cloud)).

is_marked(Path, {Entries, _}) -> maps:get(Path, Entries, absent) =:= other.

marked(Held, {Local, LocalUnknown}, {Cloud, CloudUnknown}) ->
    {{mark(Held, Local), LocalUnknown}, {mark(Held, Cloud), CloudUnknown}, Held}.

keeper(Group, Nodes) ->
    case [Path || Path <- Group, is_map_key(Path, Nodes)] of
        [Known | _] -> Known;
        [] -> hd(Group)
    end.

beside(Keeper, Group) ->
    [{Path, {case_of, engine_path:name(Keeper)}} || Path <- Group, Path =/= Keeper].

mark(Held, Entries) ->
    lists:foldl(fun({Path, _}, Marked) when is_map_key(Path, Marked) -> Marked#{Path := other};
                   (_, Marked) -> Marked
                end, Entries, Held).
