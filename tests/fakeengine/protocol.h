#pragma once

/// How a test and its fake engine talk: over a local socket whose name stands in the environment, in
/// messages of a word and a value, written as QString and QVariant by a QDataStream transaction.
namespace fakeengine
{

constexpr char socketVariable[] = "ORVEL_FAKEENGINE_SOCKET";
constexpr char slowVariable[] = "ORVEL_FAKEENGINE_SLOW"; // present: nothing is read before it is ordered

// What the engine says: how it was started (a map), what arrived on its standard input (bytes), its end.
constexpr char started[] = "started";
constexpr char input[] = "input";
constexpr char inputEnded[] = "inputEnded";

// What the test orders: bytes to write at one go, a line and how often to write it, an exit code, and
// (without a value) to begin to read the standard input, to leave it unread, to close it or to die on the spot.
constexpr char writeError[] = "writeError";
constexpr char writeOutput[] = "writeOutput";
constexpr char flood[] = "flood";
constexpr char exitWith[] = "exitWith";
constexpr char startReading[] = "startReading";
constexpr char stopReading[] = "stopReading";
constexpr char closeInput[] = "closeInput";
constexpr char crash[] = "crash";

} // namespace fakeengine
