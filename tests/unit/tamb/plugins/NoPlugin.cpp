// A shared library that is no plug-in.

extern "C" int Answer() { return 42; }
