%% The places outside the account: the state directory that one engine at a
%% time may work in, the log in it, the cloud, the user's home.
-module(engine_place).

-include_lib("kernel/include/logger.hrl").

-export([lock/2, unlock/1, log_to/1, cloud_root/2, home/0, rate/0, poll_ms/0, watcher/0]).

-export_type([lock/0]).

-define(LOG_BYTES, 1000000).
-define(POLL_MS, 2000).

-opaque lock() :: {socket, gen_tcp:socket()} | {file, file:fd()} | none.

%% The lock is what the system gives to one process only and takes back when
%% that ends, so an engine that was killed never blocks the next one. An engine
%% that is just ending gets Ms to do so.
-spec lock(binary(), non_neg_integer()) -> {ok, lock()} | busy.
lock(StateDir, Ms) ->
    lock_until(StateDir, erlang:monotonic_time(millisecond) + Ms).

lock_until(StateDir, Deadline) ->
    case take(engine_names:system(), StateDir) of
        {ok, Lock} -> {ok, Lock};
        taken ->
            case erlang:monotonic_time(millisecond) < Deadline of
                true -> receive after 50 -> lock_until(StateDir, Deadline) end;
                false -> busy
            end;
        %% It cannot be told here: work without a lock.
        {error, _} -> {ok, none}
    end.

%% A name that is no file's.
take(other, StateDir) ->
    Name = <<0, "orvel-engine-", (binary:encode_hex(crypto:hash(sha256, StateDir)))/binary>>,
    case gen_tcp:listen(0, [{ifaddr, {local, Name}}]) of
        {ok, Socket} -> {ok, {socket, Socket}};
        {error, eaddrinuse} -> taken;
        {error, Reason} -> {error, Reason}
    end;
%% A file that is open; whether it is there says nothing.
take(windows, StateDir) ->
    File = engine_file:join(StateDir, <<"engine.lock">>),
    case file:open(File, [read, write, raw, binary, unshared]) of
        {ok, Open} -> {ok, {file, Open}};
        {error, eacces} -> taken;
        {error, Reason} -> {error, Reason}
    end.

-spec unlock(lock()) -> ok.
unlock(none) -> ok;
unlock({socket, Socket}) -> gen_tcp:close(Socket);
unlock({file, File}) -> _ = file:close(File), ok.

%% Reports must never reach standard error, which belongs to the client.
-spec log_to(binary()) -> ok.
log_to(StateDir) ->
    _ = logger:remove_handler(engine),
    Config = #{config => #{type => file, max_no_bytes => ?LOG_BYTES, max_no_files => 2,
                           file => unicode:characters_to_list(
                                     engine_file:join(StateDir, <<"engine.log">>))},
               formatter => {logger_formatter, #{single_line => true, chars_limit => 2000}}},
    case catch logger:add_handler(engine, logger_std_h, Config) of
        ok -> ok;
        _ -> ok
    end.

%% The account's directory in the cloud. It is made once; when it was there
%% and is gone, the cloud is out of reach and is not replaced by an empty one.
-spec cloud_root(binary(), pos_integer()) -> binary().
cloud_root(StateDir, Uid) ->
    Cloud = case os:getenv("ORVEL_LOCAL_CLOUD") of
                Set when Set =:= false; Set =:= "" -> engine_file:join(StateDir, <<"cloud">>);
                Set ->
                    Named = engine_file:from_native(Set),
                    case filename:pathtype(Named) of
                        absolute -> engine_names:as_client(Named, engine_names:system());
                        _ -> filename:absname(Named)
                    end
            end,
    Root = engine_file:join(Cloud, integer_to_binary(Uid)),
    Known = known_clouds(StateDir),
    case lists:member(Root, Known) of
        true -> ok;
        false ->
            case engine_file:ensure_dir(Root) of
                ok -> engine_file:write_term(cloud_file(StateDir), [Root | Known]);
                {error, Reason} -> ?LOG_ERROR("the cloud cannot be made: ~0p", [Reason])
            end
    end,
    Root.

known_clouds(StateDir) ->
    case engine_file:read_term(cloud_file(StateDir)) of
        {ok, Known} when is_list(Known) -> Known;
        _ -> []
    end.

cloud_file(StateDir) -> engine_file:join(StateDir, <<"clouds.terms">>).

-spec home() -> binary().
home() ->
    Set = [Value || Name <- ["HOME", "USERPROFILE"], Value <- [os:getenv(Name)],
                    Value =/= false, Value =/= ""],
    case Set of
        [Home | _] -> engine_names:as_client(engine_file:from_native(Home), engine_names:system());
        [] -> {ok, Current} = file:get_cwd(), engine_file:from_native(Current)
    end.

%% Bytes a second, for trying out how a slow line looks.
-spec rate() -> pos_integer() | unlimited.
rate() -> positive("ORVEL_LOCAL_RATE", unlimited).

%% How long the cloud is left alone between two looks.
-spec poll_ms() -> pos_integer().
poll_ms() -> positive("ORVEL_LOCAL_POLL_MS", ?POLL_MS).

positive(Variable, Default) ->
    case string:to_integer(os:getenv(Variable, "")) of
        {Number, ""} when is_integer(Number), Number > 0 -> Number;
        _ -> Default
    end.

%% The program that watches a directory: beside the client, two floors above the
%% engine.
-spec watcher() -> binary() | none.
watcher() ->
    Program = case os:getenv("ORVEL_LOCAL_WATCH") of
                  Set when Set =:= false; Set =:= "" ->
                      Above = filename:dirname(filename:dirname(filename:dirname(filename:absname(code:which(?MODULE))))),
                      engine_file:join(engine_file:from_native(Above), watcher_name(engine_names:system()));
                  Set -> engine_file:from_native(Set)
              end,
    case engine_file:look(Program) of
        {file, _} -> Program;
        _ -> none
    end.

watcher_name(windows) -> <<"orvel-watch.exe">>;
watcher_name(other) -> <<"orvel-watch">>.
