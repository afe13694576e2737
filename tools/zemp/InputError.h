// What is wrong with a file that the user gave: one line for the terminal, beginning with the file's name.
#ifndef ZEMP_INPUTERROR_H
#define ZEMP_INPUTERROR_H

#include <stdexcept>

namespace zemp {

struct InputError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace zemp

#endif
