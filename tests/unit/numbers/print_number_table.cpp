// Writes tests/data/numbers.txt to standard output. With a number: a table that shows every so many lines of each
// section (1: all), to find what differs between two machines.

#include <cstdlib>
#include <iostream>

#include "number_table.h"

int main(int argc, char** argv) {
    std::cout << test::NumberTable(argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 0);
    return std::cout.flush() ? EXIT_SUCCESS : EXIT_FAILURE;
}
