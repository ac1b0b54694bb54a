#pragma once

// The time the program was built, in the form "Sat Apr 11 16:19:37 2020".
// Defined by a file generated at build time; test programs link a fixed one.
extern const char* const kBuildStamp;
