%% The way to the client: one JSON object a line on standard error.
%%
%% The client cuts its input read by read and keeps nothing, so a message that
%% arrived in two reads would be lost. Each message is one write, and the next
%% one is held back until the system has taken the one before.
-module(engine_link).

-export([start_link/0, send/2, flush/2, message/1]).

-spec start_link() -> pid().
start_link() -> spawn_link(fun init/0).

-spec send(pid(), #{binary() => engine_json:value()}) -> ok.
send(Link, Message) ->
    Link ! {send, Message},
    ok.

%% Waits until everything sent so far is written, but no longer than Timeout.
-spec flush(pid(), timeout()) -> ok | timeout.
flush(Link, Timeout) ->
    Ref = make_ref(),
    Link ! {flush, self(), Ref},
    receive {flushed, Ref} -> ok
    after Timeout -> timeout
    end.

-spec message(#{binary() => engine_json:value()}) -> binary().
message(Message) -> iolist_to_binary([engine_json:encode(Message), $\n]).

init() ->
    loop(open_port({fd, 2, 2}, [out, binary])).

loop(Port) ->
    receive
        {send, Message} ->
            true = port_command(Port, message(Message)),
            drain(Port),
            loop(Port);
        {flush, From, Ref} ->
            From ! {flushed, Ref},
            loop(Port)
    end.

drain(Port) ->
    case erlang:port_info(Port, queue_size) of
        {queue_size, 0} -> ok;
        {queue_size, _} -> receive after 1 -> drain(Port) end;
        undefined -> exit(link_closed)
    end.
