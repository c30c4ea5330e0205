#include "agent/commands/Commands.h"

int main(int argc, char** argv) { return Agent::program(argc, argv); }
