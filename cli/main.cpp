// unbulk: the command-line front end. The machine's Environment is built
// here, once, and everything below gets its services from it.

#include "Program.hpp"

int main(int argc, char** argv) {
    const unbulk::cli::Arguments arguments(argv + (argc > 0 ? 1 : 0), argv + (argc > 0 ? argc : 0));
    return unbulk::cli::run(unbulk::makeSystemEnvironment(), arguments);
}
