%% A file of terms that grows at its end: what a whole was once, and what was
%% added to it since. A change costs what the change is, not what the whole is.
%%
%% Each term stands in a frame with its length and its checksum. A file that was
%% cut off in the middle of a frame, as by a kill or a full disk, holds what
%% stands before that frame.
-module(engine_journal).

-export([read/3, append/3, write/2]).

-export_type([frames/0]).

%% The terms of the whole, each with what makes the rest.
-type frames() :: done | {term(), fun(() -> frames())}.

-define(MAGIC, "orvel-journal 1\n").
-define(HEAD, 24).
%% Behind a whole of this size it does not pay to make the file smaller.
-define(SMALL, 1048576).
-define(READ, 1048576).

%% Calls Fun for each term, in the order in which they were written. After "cut"
%% the file must be written anew, as nothing that is added to it would be read.
%% What is no such file is given as it stands.
-spec read(binary(), fun((term(), Acc) -> Acc), Acc) ->
          {whole | cut, Acc} | {other, binary()} | {error, atom()}.
read(Path, Fun, Acc) ->
    case file:open(Path, [read, raw, binary]) of
        {ok, File} ->
            Found = try file:read(File, ?HEAD) of
                        {ok, <<?MAGIC, _:64>>} -> terms(File, <<>>, Fun, Acc);
                        {ok, _} -> other;
                        eof -> other;
                        {error, Reason} -> {error, Reason}
                    after file:close(File)
                    end,
            case Found of
                other -> as_it_stands(Path);
                _ -> Found
            end;
        {error, Reason} -> {error, Reason}
    end.

as_it_stands(Path) ->
    case engine_file:read(Path) of
        {ok, Text} -> {other, Text};
        {error, Reason} -> {error, Reason}
    end.

terms(File, Bytes, Fun, Acc) ->
    case Bytes of
        <<Size:32, Sum:32, Frame:Size/binary, Rest/binary>> ->
            case erlang:crc32(Frame) of
                Sum -> terms(File, Rest, Fun, Fun(binary_to_term(Frame), Acc));
                _ -> {cut, Acc}
            end;
        _ ->
            case file:read(File, ?READ) of
                {ok, More} -> terms(File, <<Bytes/binary, More/binary>>, Fun, Acc);
                eof when Bytes =:= <<>> -> {whole, Acc};
                eof -> {cut, Acc};
                {error, Reason} -> {error, Reason}
            end
    end.

%% Adds a term. A file that is missing, or that holds more additions than it
%% held at first, is written anew: Whole gives what it is then, Term included.
-spec append(binary(), term(), fun(() -> frames())) -> ok | {error, atom()}.
append(Path, Term, Whole) ->
    case file:open(Path, [read, write, raw, binary]) of
        {ok, File} ->
            Added = try add(File, Term) after file:close(File) end,
            case Added of
                anew -> write(Path, Whole);
                _ -> Added
            end;
        {error, _} -> write(Path, Whole)
    end.

add(File, Term) ->
    case {file:read(File, ?HEAD), file:position(File, eof)} of
        {{ok, <<?MAGIC, Whole:64>>}, {ok, Size}} when Size =< 2 * Whole + ?SMALL ->
            case write_all(File, frame(Term)) of
                ok -> ok;
                %% Half a frame would hide those after it.
                {error, Reason} ->
                    _ = file:position(File, Size),
                    _ = file:truncate(File),
                    {error, Reason}
            end;
        _ -> anew
    end.

write_all(File, Bytes) ->
    case file:write(File, Bytes) of
        ok -> file:datasync(File);
        {error, Reason} -> {error, Reason}
    end.

frame(Term) ->
    Frame = term_to_binary(Term),
    [<<(byte_size(Frame)):32, (erlang:crc32(Frame)):32>>, Frame].

-spec write(binary(), fun(() -> frames())) -> ok | {error, atom()}.
write(Path, Whole) -> engine_file:write_atomic(Path, fun(File) -> write_frames(File, Whole()) end, 8#600).

write_frames(File, Frames) ->
    case file:write(File, <<?MAGIC, 0:64>>) of
        ok -> write_frames(File, Frames, ?HEAD);
        {error, Reason} -> {error, Reason}
    end.

write_frames(File, done, Size) -> file:pwrite(File, ?HEAD - 8, <<Size:64>>);
write_frames(File, {Term, Rest}, Size) ->
    Frame = frame(Term),
    case file:write(File, Frame) of
        ok -> write_frames(File, Rest(), Size + iolist_size(Frame));
        {error, Reason} -> {error, Reason}
    end.
