#include "zemp/Cli.h"
#include "zemp/Interrupt.h"

#include <csignal>
#include <iostream>

int main(int argc, char** argv) {
    const int status = zemp::run(argc, argv, std::cout, std::cerr);
    if (const int number = zemp::interruptedBy()) // ends as the caller expects of it
        raise(number);
    return status;
}
