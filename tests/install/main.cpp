// Uses the libraries from an install prefix as an embedder does.

#include "Orb/AttributeId.h"

int main() {}
