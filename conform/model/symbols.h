/// The symbols of the process: those of the SDK's services and of the module, whoever brings them.
#ifndef KYBRIDGE_CONFORM_MODEL_SYMBOLS_H
#define KYBRIDGE_CONFORM_MODEL_SYMBOLS_H

#include <stdexcept>

namespace conform {

/// Thrown where the process lacks a symbol.
struct MissingSymbol : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The address of a symbol of the process and of the libraries that it opened for everybody; NULL: there is none.
void *find_symbol(const char *name);
/// As find_symbol. @throws MissingSymbol when there is none
void *need_symbol(const char *name);

/// A function or variable of the process, under the type that its header gives it.
#define PROCESS_SYMBOL(name) (*reinterpret_cast<decltype(&::name)>(conform::need_symbol(#name)))

} // namespace conform

#endif
