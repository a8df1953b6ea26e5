#include <iostream>

#include "ProjectTool/ProjectTool.h"

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  return orvan::engine::runProjectTool(arguments, std::cout, std::cerr);
}
