// A visitor made of lambdas, one per alternative of a std::variant:
//
//   std::visit(Overloaded{[](const A& a) { ... }, [](const B& b) { ... }}, value);
#pragma once

namespace kiv {

template <typename... Visitors>
struct Overloaded : Visitors... {
  using Visitors::operator()...;
};
// Spelled out for compilers without aggregate deduction (clang 16, used by
// the fuzz build).
template <typename... Visitors>
Overloaded(Visitors...) -> Overloaded<Visitors...>;

}  // namespace kiv
