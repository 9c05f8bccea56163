#include "next.h"

#include <dlfcn.h>
#include <link.h>

#include <string>
#include <vector>

namespace spy {

namespace {

int addName(dl_phdr_info* object, size_t, void* names) {
    if (object->dlpi_name != nullptr && *object->dlpi_name != '\0')
        static_cast<std::vector<std::string>*>(names)->emplace_back(object->dlpi_name);
    return 0;
}

bool isOwn(const void* address) {
    Dl_info own{};
    Dl_info found{};
    return dladdr(reinterpret_cast<const void*>(&findNext), &own) != 0 && dladdr(address, &found) != 0 &&
           own.dli_fbase == found.dli_fbase;
}

// A library that was loaded for one user alone, as services load theirs, is in nobody's search order.
void* findAmongLoaded(const char* symbol) {
    std::vector<std::string> names;
    dl_iterate_phdr(addName, &names);
    for (const std::string& name : names) {
        void* const library = dlopen(name.c_str(), RTLD_LAZY | RTLD_NOLOAD);
        if (library == nullptr) continue;
        void* const found = dlsym(library, symbol);
        dlclose(library);  // it stays, for it was there before
        if (found != nullptr && !isOwn(found)) return found;
    }
    return nullptr;
}

}  // namespace

void* findNext(const char* symbol) {
    void* const next = dlsym(RTLD_NEXT, symbol);
    void* const found = next != nullptr ? next : findAmongLoaded(symbol);
    // What is called from here stays where it is, whatever the program unloads.
    Dl_info where{};
    if (found != nullptr && dladdr(found, &where) != 0) {
        void* const library = dlopen(where.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
        if (library != nullptr) dlclose(library);
    }
    return found;
}

}  // namespace spy
