#include "zemp/Cli.h"

#include <iostream>

int main(int argc, char** argv) {
    return zemp::run(argc, argv, std::cout, std::cerr);
}
