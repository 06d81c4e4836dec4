// Errors of running code and of requests: what is thrown inside, and the numbers in use.
#pragma once

#include "error_numbers.h"
#include "kcirecords.h"
#include "store/oop.h"

#include <string>
#include <vector>

namespace local {

// An error on its way to whoever asked: thrown by primitives and requests, kept by a suspended process.
struct Failure {
    ErrorNumber number;
    std::string message; // modified UTF-8
    std::vector<Oop> arguments;

    Failure(ErrorNumber errorNumber, std::string text, std::vector<Oop> args = {})
        : number(errorNumber), message(std::move(text)), arguments(std::move(args)) {}
};

} // namespace local
