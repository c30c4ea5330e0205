// The engine's column without its wide loads, which are no accesses that the language knows.
#include "Brine/rows/Column.h"

// Behind the headers, which ask for it too.
#undef __x86_64__
#include "platform/Brine/rows/Column.cpp"
