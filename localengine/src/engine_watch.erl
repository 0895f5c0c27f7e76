%% Tells what changes in a directory, as a small program beside the engine sees
%% it: {watch, Pid, {changed, Dirs}} with paths inside the directory, and
%% {watch, Pid, all} when something may have been missed or before it watches.
%% The process ends when nothing can be told any more.
-module(engine_watch).

-export([start_link/2]).

-define(MAX_LINE, 65536).

-spec start_link(binary(), binary()) -> pid().
start_link(Program, Dir) ->
    Owner = self(),
    spawn_link(fun() -> watch(Program, Dir, Owner) end).

watch(Program, Dir, Owner) ->
    Port = open_port({spawn_executable, engine_file:to_native(Program)},
                     [{args, [engine_file:to_native(Dir)]}, binary, {line, ?MAX_LINE}, exit_status, hide]),
    loop(Port, Owner, <<>>).

loop(Port, Owner, Start) ->
    receive
        {Port, {data, {noeol, Part}}} -> loop(Port, Owner, <<Start/binary, Part/binary>>);
        {Port, {data, {eol, End}}} ->
            tell(line(<<Start/binary, End/binary>>), Owner, Port),
            loop(Port, Owner, <<>>);
        {Port, {exit_status, _}} -> ok
    end.

%% What has come by now goes in one message.
tell({changed, Dir}, Owner, Port) -> Owner ! {watch, self(), changed([Dir], Port)};
tell(all, Owner, _) -> Owner ! {watch, self(), all};
tell(nothing, _, _) -> ok.

changed(Dirs, Port) ->
    receive
        {Port, {data, {eol, Line}}} ->
            case line(Line) of
                {changed, Dir} -> changed([Dir | Dirs], Port);
                all -> all;
                nothing -> changed(Dirs, Port)
            end
    after 0 -> {changed, lists:usort(Dirs)}
    end.

%% Once everything is watched, what was done before then has to be looked for.
line(<<"+", Path/binary>>) -> {changed, unquote(Path)};
line(<<Sign, _/binary>>) when Sign =:= $=; Sign =:= $! -> all;
line(_) -> nothing.

unquote(Text) ->
    case binary:split(Text, <<"%">>) of
        [Start, <<Hex:2/binary, Rest/binary>>] ->
            <<Start/binary, (binary:decode_hex(Hex))/binary, (unquote(Rest))/binary>>;
        [Plain | _] -> Plain
    end.
