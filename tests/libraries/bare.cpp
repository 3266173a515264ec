// A library that exports something, and not what the one that needs it asks for.

extern "C" {
int bareNumber = 1;
}
