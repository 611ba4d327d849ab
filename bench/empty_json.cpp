// The start-up peer: a C++ program, built with the helper's flags, that only prints {}.
#include <iostream>

int main() {
  std::cout << "{}" << std::endl;
  return 0;
}
