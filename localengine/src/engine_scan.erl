%% What is in a root now. A place that could not be looked at is "unknown":
%% nothing may be concluded from what is not seen there.
-module(engine_scan).

-export([dir/2, below/3, full/1]).

-export_type([view/0, listing/0]).

-type view() :: {Entries :: #{binary() => engine_file:entry()}, Unknown :: [binary()]}.
-type listing() :: [{Name :: binary(), engine_file:entry() | unknown}].

%% One directory, by name.
-spec dir(binary(), binary()) -> {ok, listing()} | {error, atom()}.
dir(Root, Dir) ->
    case engine_native:listing(engine_file:join(Root, Dir)) of
        {ok, Listing} when Dir =:= <<>> -> {ok, [Item || {Name, _} = Item <- Listing, not engine_names:is_own(Name)]};
        Other -> Other
    end.

%% Adds what lies below a directory.
-spec below(binary(), binary(), view()) -> view().
below(Root, Dir, {Entries, Unknown}) ->
    case dir(Root, Dir) of
        {ok, Listing} ->
            lists:foldl(fun({Name, Entry}, View) -> add(Root, engine_path:child(Dir, Name), Entry, View) end,
                        {Entries, Unknown}, Listing);
        {error, _} -> {Entries, [Dir | Unknown]}
    end.

add(_, Path, unknown, {Entries, Unknown}) -> {Entries, [Path | Unknown]};
add(Root, Path, {dir, _} = Entry, {Entries, Unknown}) -> below(Root, Path, {Entries#{Path => Entry}, Unknown});
add(_, Path, Entry, {Entries, Unknown}) -> {Entries#{Path => Entry}, Unknown}.

-spec full(binary()) -> view().
full(Root) -> below(Root, <<>>, {#{}, []}).
