// Nothing: the program exists for its precompiled headers.
