#include "frame/engine.h"

#include "frame/platform.h"

namespace halftone {

std::string Engine::HostFolder() const {
  if (!host_folder_override.empty()) return host_folder_override;
  return platform::ExecutableFolder();
}

std::string Engine::MothsPath(const std::string& name) const {
  return HostFolder() + "Moths" + platform::PathSeparator() + name;
}

}  // namespace halftone
