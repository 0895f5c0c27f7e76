%% Which folders of an account are shared with whom. Shares are remembered in
%% the state directory under the folder's path inside the account.
-module(engine_share).

-export([load/1, save/2, share/5]).

-export_type([shares/0, code/0]).

-define(PATH_NOT_FOUND, 0).
-define(NOT_OWNER, 1).
-define(OVERLAPS, 2).
-define(NO_SUCH_USER, 4).

-type shares() :: #{{Uid :: pos_integer(), Folder :: binary()} => [binary()]}.
-type code() :: 0..4.

-spec load(binary()) -> shares().
load(StateDir) ->
    case engine_file:read_term(file_name(StateDir)) of
        {ok, Shares} when is_map(Shares) -> Shares;
        _ -> #{}
    end.

-spec save(binary(), shares()) -> ok | {error, atom()}.
save(StateDir, Shares) ->
    engine_file:write_term(file_name(StateDir), Shares).

file_name(StateDir) -> <<StateDir/binary, "/shares.terms">>.

%% Facts tells what is true of the request: owner (the signed-in person owns
%% the account), user (the other person exists) and folder, a function that
%% says whether a path of the account is a folder now. Shares of folders that
%% are gone do not stand in the way of new ones.
-spec share(shares(), pos_integer(), outside | binary(), binary(),
            #{owner := boolean(), user := boolean(),
              folder := fun((binary()) -> boolean())}) ->
          {ok, shares()} | {error, code()}.
share(_, _, outside, _, _) -> {error, ?PATH_NOT_FOUND};
share(Shares, Uid, Folder, User, #{owner := Owner, user := Known, folder := IsFolder}) ->
    case IsFolder(Folder) of
        false -> {error, ?PATH_NOT_FOUND};
        true when not Owner -> {error, ?NOT_OWNER};
        true when not Known -> {error, ?NO_SUCH_USER};
        true ->
            Related = [Other || {U, Other} <- maps:keys(Shares), U =:= Uid,
                                Other =/= Folder,
                                below(Other, Folder) orelse below(Folder, Other),
                                IsFolder(Other)],
            case Related of
                [] -> {ok, add(Shares, {Uid, Folder}, User)};
                _ -> {error, ?OVERLAPS}
            end
    end.

add(Shares, Key, User) ->
    maps:update_with(Key, fun(Users) -> lists:usort([User | Users]) end, [User], Shares).

below(_, <<>>) -> true;
below(Path, Folder) ->
    Prefix = <<Folder/binary, "/">>,
    binary:longest_common_prefix([Path, Prefix]) =:= byte_size(Prefix).
