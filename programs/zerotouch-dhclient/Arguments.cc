#include "programs/zerotouch-dhclient/Arguments.h"

Arguments::Arguments(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    std::string const argument = argv[i];
    if (argument != "--ignore-preinit") all.push_back(argument);
  }
  for (std::size_t i = 0; i < all.size(); ++i) {
    std::string const& argument = all[i];
    isV6 = isV6 || argument == "-6";
    isStateless = isStateless || argument == "-S";
    isRelease = isRelease || argument == "-r";
    std::string* const value = argument == "-sf"   ? &script
                               : argument == "-cf" ? &config
                               : argument == "-lf" ? &leaseFile
                               : argument == "-pf" ? &pidFile
                                                   : nullptr;
    bool const hasValue = i + 1 < all.size();
    if (value != nullptr) {
      if (hasValue) *value = all[++i];
    } else if (argument == "-e") {
      if (hasValue) environment.push_back(all[++i]);
    } else if (!argument.starts_with('-')) {
      devices.push_back(argument);
    }
  }
}
