#include <cstdlib>
#include <fstream>
#include <iostream>

#include "daemon_rules.h"

/// Writes the reference page of the configuration into the file named on the command line.
int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "Usage: write_configuration_reference FILE\n";
        return EXIT_FAILURE;
    }
    std::ofstream file(argv[1]);
    file << qapp::ConfigurationReference(DaemonRules());
    file.close();
    if (!file) {
        std::cerr << "Cannot write " << argv[1] << '\n';
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
