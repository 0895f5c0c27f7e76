#pragma once

namespace bench
{

class Table;

void codec(Table& table);
void batching(Table& table);
void engineEvent(Table& table);
void flood(Table& table);
void pipe(Table& table);
void watching(Table& table);
/// The client and the smallest program with a tray icon.
void start(Table& table);
/// The same two, built for Windows, under Wine.
void startOnWindows(Table& table);
void idle(Table& table);
/// The client and the packaged programs for the tray that are installed.
void others(Table& table);

} // namespace bench
