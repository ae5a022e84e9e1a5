// A shared library that is not a plug-in.

extern "C" int Answer() { return 42; }
