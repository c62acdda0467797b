// A library with something in it.
extern "C" __attribute__((visibility("default"))) int probe();
extern "C" int probe() { return 1; }
