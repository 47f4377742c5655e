// The closed libraries under the product, as bad as their contracts let them be: each call answers as `Answers` says. A
// handle that was given is checked at every use.
#pragma once

namespace kov::test {

/// Objects that a library made with success and that were not given back; each is named on the error output. Those that
/// came without success are forgotten: they were the libraries' own concern.
int handlesOwed();

}  // namespace kov::test
