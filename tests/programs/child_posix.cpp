#include "tests/programs/child.h"

int main(int argc, char** argv) { return test_programs::RunChild({argv + 1, argv + argc}); }
