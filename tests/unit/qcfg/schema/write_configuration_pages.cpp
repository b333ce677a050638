#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>

#include "daemon_rules.h"
#include "qapp/configuration_manual.h"

namespace {

bool Write(const char* fileName, const std::string& text) {
    std::ofstream file(fileName);
    file << text;
    file.close();
    if (!file) {
        std::cerr << "Cannot write " << fileName << '\n';
    }
    return static_cast<bool>(file);
}

}  // namespace

/// Writes the reference page and the manual page of the configuration into the files named on the command line.
int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "Usage: write_configuration_pages REFERENCE MANUAL\n";
        return EXIT_FAILURE;
    }
    const bool isDone = Write(argv[1], qapp::ConfigurationReference(DaemonRules())) &&
                        Write(argv[2], qapp::ConfigurationManual(DaemonRules()));
    return isDone ? EXIT_SUCCESS : EXIT_FAILURE;
}
