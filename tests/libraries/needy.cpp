// A library that needs another one, which need not be there.

extern "C" __attribute__((visibility("default"))) int hollowNumber;

extern "C" int* NeedyNumber() { return &hollowNumber; }
