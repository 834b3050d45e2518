// Said runs a command of the shell and gives what it wrote to standard output.
#pragma once

#include <string>

namespace vox::test {

// status gets what waitpid(2) tells, -1 when there is no shell.
std::string Said(const std::string& command, int* status);

// IsHere tells whether the shell finds the program.
bool IsHere(const std::string& program);

// TextOf gives the bytes of a file; a file that cannot be read fails the test.
std::string TextOf(const std::string& path);

}  // namespace vox::test
