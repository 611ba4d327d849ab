// Whether the machine shows a GPU at all, asked of the kernel's device lists before any GPU
// library is loaded. Vulkan's loader loads every installed driver to enumerate devices, and
// Mesa's software and AMD drivers pull in LLVM (about 50 MB and a tenth of a second each), so
// on a machine without a GPU the capabilities report does not ask Vulkan.
#pragma once

#include <string>

namespace tallowbrook {

// Whether `sysClassDrm` (normally /sys/class/drm) holds a DRM render node ("renderD<n>", one per
// GPU driven by the kernel, whatever the vendor), or `dev` (normally /dev) an NVIDIA device node
// ("nvidia<n>") or WSL's paravirtual GPU ("dxg"). Reads directory entries only; a folder that
// cannot be read counts as empty. Any thread.
bool gpuDeviceNodesPresent(const std::string& sysClassDrm = "/sys/class/drm",
                           const std::string& dev = "/dev");

// Whether the environment names Vulkan drivers (VK_ICD_FILENAMES, VK_DRIVER_FILES or
// VK_ADD_DRIVER_FILES): a choice made on purpose, so Vulkan is asked whatever the device nodes
// say. Main thread (reads the environment).
bool vulkanDriversNamed();

}  // namespace tallowbrook
