// The part of toml++ that its headers may leave to a library.
#define TOML_IMPLEMENTATION
#include <toml++/toml.h>
