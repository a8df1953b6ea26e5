#pragma once

#include <string>
#include <vector>

// `--scene FILE --size WxH --frames N --output F.ppm`: renders a scene file and exits (the
// benchmarks use it). The arguments after the program name; returns the exit status.
int runOneShot(const std::vector<std::string>& arguments);
