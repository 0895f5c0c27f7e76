%% The engine's entry: reads the client's messages from standard input until
%% it closes, and ends the virtual machine then.
-module(rtsp).

-export([startplain/1]).

-define(FLUSH_MS, 300).

%% Called from the command line. With true, log lines also go to standard
%% output, for a person who tries the engine by hand.
-spec startplain(boolean()) -> ok.
startplain(Verbose) ->
    %% A crash dump would land beside the program and could hold a password.
    %% Where a launcher starts the virtual machine, it has said so before.
    true = os:putenv("ERL_CRASH_DUMP_BYTES", "0"),
    %% Without the first of these the second one steps in.
    _ = [logger:remove_handler(Handler) || Handler <- [default, simple]],
    _ = Verbose andalso
        logger:add_handler(console, logger_std_h, #{config => #{type => standard_io}}),
    _ = spawn(fun run/0),
    ok.

run() ->
    process_flag(trap_exit, true),
    Link = engine_link:start_link(),
    Session = engine_session:start_link(Link),
    Main = self(),
    Reader = spawn_link(fun() -> read(Main, Session) end),
    receive
        %% The client is gone or wants the engine to go.
        {closed, Reader} -> finish(Link, Session, 0);
        {'EXIT', Link, _} -> halt(0, [{flush, false}]);
        {'EXIT', Session, _} -> finish(Link, none, 1);
        {'EXIT', Reader, _} -> finish(Link, Session, 1)
    end.

finish(Link, Session, Status) ->
    _ = Session =/= none andalso catch engine_session:stop(Session),
    _ = catch engine_link:flush(Link, ?FLUSH_MS),
    halt(Status, [{flush, false}]).

%% The launcher leaves standard input to the engine; under a plain start the
%% virtual machine holds it and is asked for the lines.
read(Main, Session) ->
    case init:get_argument(noinput) of
        {ok, _} ->
            Port = open_port({fd, 0, 0}, [in, binary, stream, eof]),
            read_port(Port, Session, engine_frames:new());
        error ->
            ok = io:setopts(standard_io, [binary, {encoding, latin1}]),
            read_io(Session, engine_frames:new())
    end,
    Main ! {closed, self()}.

read_port(Port, Session, Frames) ->
    receive
        {Port, {data, Bytes}} -> read_port(Port, Session, push(Bytes, Session, Frames));
        {Port, eof} -> ok
    end.

read_io(Session, Frames) ->
    %% The module for files gives bytes as they come, that for texts would encode them.
    case file:read_line(standard_io) of
        {ok, Bytes} -> read_io(Session, push(Bytes, Session, Frames));
        _ -> ok
    end.

push(Bytes, Session, Frames) ->
    {Messages, Rest} = engine_frames:push(Bytes, Frames),
    [engine_session:message(Session, Message) || Message <- Messages],
    Rest.
