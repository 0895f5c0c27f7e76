%% The sync folder of an account: where it is, whose it is, and whether it is
%% there. The roots file "<uid>.json" tells the client the place; a marker in
%% the hidden cache directory tells the engine that a directory is the one it
%% knew, and not an empty one that took its place.
-module(engine_roots).

-export([read/2, write/3, choose/3, check/1, stands/2, claim/2]).

-export_type([state/0]).

-type state() :: {marked, Uid :: pos_integer(), Token :: binary()}
               | unmarked | missing.

-spec read(binary(), pos_integer()) -> {ok, binary()} | none.
read(StateDir, Uid) ->
    case engine_file:read(file_name(StateDir, Uid)) of
        {ok, Text} ->
            case engine_json:decode(Text) of
                {ok, [#{<<"path">> := Parent, <<"name">> := Name} | _]}
                  when is_binary(Parent), Parent =/= <<>>, is_binary(Name), Name =/= <<>> ->
                    {ok, engine_file:join(Parent, Name)};
                _ -> none
            end;
        {error, _} -> none
    end.

-spec write(binary(), pos_integer(), binary()) -> ok | {error, atom()}.
write(StateDir, Uid, Root) ->
    Parent = case engine_path:parent(Root) of
                 <<>> -> <<"/">>;
                 <<Drive, $:>> -> <<Drive, ":/">>;
                 Above -> Above
             end,
    Roots = [#{<<"path">> => Parent, <<"name">> => engine_path:name(Root)}],
    engine_file:write_atomic(file_name(StateDir, Uid), engine_json:encode(Roots), 8#644).

file_name(StateDir, Uid) ->
    <<StateDir/binary, "/", (integer_to_binary(Uid))/binary, ".json">>.

%% Makes the folder for an account that has none. A folder that belongs to
%% another account is never shared with it: the next free name is taken.
-spec choose(binary(), binary(), pos_integer()) -> {ok, binary()} | {error, atom()}.
choose(Parent, Name, Uid) ->
    case engine_file:ensure_dir(Parent) of
        ok -> choose(Parent, Name, Uid, 1);
        {error, Reason} -> {error, Reason}
    end.

choose(_, _, _, 100) -> {error, eexist};
choose(Parent, Name, Uid, Try) ->
    Root = engine_file:join(Parent, numbered(Name, Try)),
    case check(Root) of
        {marked, Other, _} when Other =/= Uid -> choose(Parent, Name, Uid, Try + 1);
        missing ->
            case file:make_dir(Root) of
                ok -> {ok, Root};
                {error, eexist} -> choose(Parent, Name, Uid, Try + 1);
                {error, Reason} -> {error, Reason}
            end;
        _ -> {ok, Root}
    end.

numbered(Name, 1) -> Name;
numbered(Name, Try) -> <<Name/binary, " ", (integer_to_binary(Try))/binary>>.

-spec check(binary()) -> state().
check(Root) ->
    case filelib:is_dir(Root) of
        false -> missing;
        true ->
            case engine_file:read(marker_name(Root)) of
                {ok, Text} -> parse(Text);
                {error, Reason} when Reason =:= enoent; Reason =:= enotdir -> unmarked;
                {error, _} -> missing
            end
    end.

%% Whether a root is there and is the one that the token was given to.
-spec stands(binary(), Token :: binary()) -> boolean().
stands(Root, Token) ->
    case engine_file:read(marker_name(Root)) of
        {ok, Text} ->
            case parse(Text) of
                {marked, _, Token} -> true;
                _ -> false
            end;
        {error, _} -> false
    end.

parse(Text) ->
    try
        [<<"orvel-root">>, Uid, Token] = binary:split(string:trim(Text), <<" ">>, [global]),
        {marked, binary_to_integer(Uid), Token}
    catch error:_ -> unmarked
    end.

%% Makes the cache directory and the marker where they are missing.
-spec claim(binary(), pos_integer()) -> {ok, Token :: binary()} | {error, atom()}.
claim(Root, Uid) ->
    case check(Root) of
        {marked, Uid, Token} -> {ok, Token};
        missing -> {error, enoent};
        _ ->
            Token = binary:encode_hex(crypto:strong_rand_bytes(12)),
            Text = [<<"orvel-root ">>, integer_to_binary(Uid), $\s, Token, $\n],
            case engine_file:make_dir(engine_file:join(Root, engine_file:cache_name())) of
                ok ->
                    case engine_file:write_atomic(marker_name(Root), Text, 8#644) of
                        ok -> {ok, Token};
                        {error, Reason} -> {error, Reason}
                    end;
                {error, Reason} -> {error, Reason}
            end
    end.

marker_name(Root) ->
    engine_file:join(Root, <<(engine_file:cache_name())/binary, "/root.id">>).
