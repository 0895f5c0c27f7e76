%% Who may sign in, and to which account. An address is a person with a
%% password; an account is a cloud with a package and a quota. A person may
%% open several accounts, and owns those that name the address as owner.
-module(engine_accounts).

-export([load/1, login/4, account/2, has_user/2, is_owner/3,
         remember/3, remembered/2, forget/1]).

-export_type([accounts/0, account/0]).

-define(GIB, 1073741824).
-define(ITERATIONS, 100000).

-type account() :: #{owner := binary(), package := binary(),
                     quota := non_neg_integer()}.
-type accounts() :: #{users := #{binary() => #{salt := binary(), hash := binary(),
                                               uids := [pos_integer()]}},
                      accounts := #{pos_integer() => account()}}.

%% Reads the accounts of a state directory; makes the trial accounts when
%% there are none. A damaged file is kept aside, never silently lost.
-spec load(binary()) -> accounts().
load(StateDir) ->
    Path = file_name(StateDir),
    case engine_file:read_term(Path) of
        {ok, #{users := Users, accounts := Accounts} = All}
          when is_map(Users), is_map(Accounts) -> All;
        {error, enoent} -> create(Path);
        _ ->
            _ = file:rename(Path, <<Path/binary, ".damaged">>),
            create(Path)
    end.

create(Path) ->
    All = #{users => #{<<"trial@orvel.example">> => user(<<"trial">>, [1001]),
                       <<"team@orvel.example">> => user(<<"team">>, [2001, 2002]),
                       <<"guest@orvel.example">> => user(<<"guest">>, [2002])},
            accounts => #{1001 => account_of(<<"trial@orvel.example">>, <<"Trial">>, 5),
                          2001 => account_of(<<"team@orvel.example">>, <<"Team">>, 20),
                          2002 => account_of(<<"team@orvel.example">>, <<"Archive">>, 50)}},
    _ = engine_file:write_term(Path, All),
    All.

user(Password, Uids) ->
    Salt = crypto:strong_rand_bytes(16),
    #{salt => Salt, hash => derive(Password, Salt), uids => Uids}.

account_of(Owner, Package, Gib) ->
    #{owner => Owner, package => Package, quota => Gib * ?GIB}.

derive(Password, Salt) ->
    crypto:pbkdf2_hmac(sha256, Password, Salt, ?ITERATIONS, 32).

%% Cid is the text of the account that was picked, or empty.
-spec login(accounts(), binary(), binary(), binary()) ->
          {ok, pos_integer()} | {choose, [pos_integer()]} | refused.
login(#{users := Users}, Address, Password, Cid) ->
    case Users of
        #{Address := #{salt := Salt, hash := Hash, uids := Uids}} ->
            case crypto:hash_equals(Hash, derive(Password, Salt)) of
                true -> pick(Uids, Cid);
                false -> refused
            end;
        _ -> refused
    end.

pick([Uid], <<>>) -> {ok, Uid};
pick(Uids, <<>>) -> {choose, Uids};
pick(Uids, Cid) ->
    case [Uid || Uid <- Uids, integer_to_binary(Uid) =:= Cid] of
        [Uid] -> {ok, Uid};
        [] -> refused
    end.

-spec account(accounts(), pos_integer()) -> account().
account(#{accounts := Accounts}, Uid) -> maps:get(Uid, Accounts).

-spec has_user(accounts(), binary()) -> boolean().
has_user(#{users := Users}, Address) -> maps:is_key(Address, Users).

-spec is_owner(accounts(), binary(), pos_integer()) -> boolean().
is_owner(All, Address, Uid) -> maps:get(owner, account(All, Uid)) =:= Address.

%% The sign-in outlives the engine until the user signs out.
-spec remember(binary(), binary(), pos_integer()) -> ok | {error, atom()}.
remember(StateDir, Address, Uid) ->
    engine_file:write_term(signin_name(StateDir), #{address => Address, uid => Uid}).

-spec remembered(binary(), accounts()) -> {ok, binary(), pos_integer()} | none.
remembered(StateDir, #{users := Users, accounts := Accounts}) ->
    case engine_file:read_term(signin_name(StateDir)) of
        {ok, #{address := Address, uid := Uid}} ->
            case Users of
                #{Address := #{uids := Uids}} when is_map_key(Uid, Accounts) ->
                    case lists:member(Uid, Uids) of
                        true -> {ok, Address, Uid};
                        false -> none
                    end;
                _ -> none
            end;
        _ -> none
    end.

-spec forget(binary()) -> ok.
forget(StateDir) ->
    _ = file:delete(signin_name(StateDir)),
    ok.

file_name(StateDir) -> <<StateDir/binary, "/accounts.terms">>.
signin_name(StateDir) -> <<StateDir/binary, "/signin.terms">>.
