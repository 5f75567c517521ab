// Prints where the loaded SDK library finds its resources and whether the
// loading spinner is there: "<directory>\n<yes|no>\n". Linked against the
// shipped shared library, so that the loader decides which copy answers.
#include <iostream>

#include "kiv/resource_bundle.hpp"

int main() {
  const auto bundle = kiv::ResourceBundle::sdk();
  std::cout << bundle->directory().string() << "\n"
            << (bundle->data("loading_spinner_1", "webp") ? "yes" : "no") << "\n";
  return 0;
}
