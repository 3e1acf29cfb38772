// When a connection of the web server's ends.
#pragma once

#include <chrono>

struct mg_connection;

// Whoever reads or writes it sees its end; for another thread than the server's own. The library's
// own call closes the descriptor, whose number may be another connection's before the server's
// thread, which waits for it, has noticed. The caller knows that the server has not closed it yet.
// Takes no memory.
void end_connection(const mg_connection* connection);

// Ends it by itself when what is written to it is not acknowledged for as long: a client that left
// its network says nothing, and the system would try for a quarter of an hour.
void limit_silence(const mg_connection* connection, std::chrono::milliseconds longest);
