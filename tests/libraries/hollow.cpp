// A library that exports nothing that anybody asks for, but a number.

extern "C" {
int hollowNumber = 42;
}
