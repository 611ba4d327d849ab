// Vulkan is loaded at run time so that the helper has no build or load dependency on it. Only
// the few stable, ABI-fixed declarations the probe needs are spelled out here.
#include <dlfcn.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "cli/gpu_facts.h"

namespace tallowbrook {
namespace {

using VkResult = int32_t;
using VkInstance = struct VkInstanceT*;
using VkPhysicalDevice = struct VkPhysicalDeviceT*;
using PFN_vkVoidFunction = void (*)();

constexpr VkResult kVkSuccess = 0;
constexpr VkResult kVkIncomplete = 5;
constexpr uint32_t kStructureTypeApplicationInfo = 0;
constexpr uint32_t kStructureTypeInstanceCreateInfo = 1;
constexpr uint32_t kApiVersion10 = 1u << 22;
constexpr uint32_t kMemoryHeapDeviceLocalBit = 0x1;

struct VkApplicationInfo {
  uint32_t sType;
  const void* pNext;
  const char* pApplicationName;
  uint32_t applicationVersion;
  const char* pEngineName;
  uint32_t engineVersion;
  uint32_t apiVersion;
};

struct VkInstanceCreateInfo {
  uint32_t sType;
  const void* pNext;
  uint32_t flags;
  const VkApplicationInfo* pApplicationInfo;
  uint32_t enabledLayerCount;
  const char* const* ppEnabledLayerNames;
  uint32_t enabledExtensionCount;
  const char* const* ppEnabledExtensionNames;
};

// The head of VkPhysicalDeviceProperties; the limits and sparse properties that follow are
// received into spare room and never read.
struct VkPhysicalDeviceProperties {
  uint32_t apiVersion;
  uint32_t driverVersion;
  uint32_t vendorID;
  uint32_t deviceID;
  uint32_t deviceType;
  char deviceName[256];
  uint8_t pipelineCacheUUID[16];
  alignas(8) unsigned char limitsAndSparseProperties[1024];
};

struct VkMemoryType {
  uint32_t propertyFlags;
  uint32_t heapIndex;
};

struct VkMemoryHeap {
  uint64_t size;
  uint32_t flags;
};

struct VkPhysicalDeviceMemoryProperties {
  uint32_t memoryTypeCount;
  VkMemoryType memoryTypes[32];
  uint32_t memoryHeapCount;
  VkMemoryHeap memoryHeaps[16];
};
static_assert(sizeof(VkPhysicalDeviceMemoryProperties) == 520);
static_assert(offsetof(VkPhysicalDeviceProperties, deviceName) == 20);

using GetInstanceProcAddr = PFN_vkVoidFunction (*)(VkInstance, const char*);
using CreateInstance = VkResult (*)(const VkInstanceCreateInfo*, const void*, VkInstance*);
using DestroyInstance = void (*)(VkInstance, const void*);
using EnumeratePhysicalDevices = VkResult (*)(VkInstance, uint32_t*, VkPhysicalDevice*);
using GetProperties = void (*)(VkPhysicalDevice, VkPhysicalDeviceProperties*);
using GetMemoryProperties = void (*)(VkPhysicalDevice, VkPhysicalDeviceMemoryProperties*);

GpuCandidate::Kind kindOf(uint32_t deviceType) {
  switch (deviceType) {
    case 1:
      return GpuCandidate::Kind::integrated;
    case 2:
      return GpuCandidate::Kind::discrete;
    case 3:
      return GpuCandidate::Kind::virtualGpu;
    case 4:
      return GpuCandidate::Kind::cpu;
    default:
      return GpuCandidate::Kind::other;
  }
}

}  // namespace

std::vector<GpuCandidate> vulkanDevices() {
  // The loader is left loaded: some drivers do not survive being unloaded, and the process
  // ends right after the report.
  void* loader = dlopen("libvulkan.so.1", RTLD_NOW | RTLD_LOCAL);
  if (loader == nullptr) return {};
  auto getProc = reinterpret_cast<GetInstanceProcAddr>(dlsym(loader, "vkGetInstanceProcAddr"));
  if (getProc == nullptr) return {};

  auto createInstance = reinterpret_cast<CreateInstance>(getProc(nullptr, "vkCreateInstance"));
  if (createInstance == nullptr) return {};

  VkApplicationInfo app{};
  app.sType = kStructureTypeApplicationInfo;
  app.pApplicationName = "tallowbrook-helper";
  app.apiVersion = kApiVersion10;
  VkInstanceCreateInfo info{};
  info.sType = kStructureTypeInstanceCreateInfo;
  info.pApplicationInfo = &app;
  VkInstance instance = nullptr;
  if (createInstance(&info, nullptr, &instance) != kVkSuccess || instance == nullptr) return {};

  auto destroy = reinterpret_cast<DestroyInstance>(getProc(instance, "vkDestroyInstance"));
  auto enumerate =
      reinterpret_cast<EnumeratePhysicalDevices>(getProc(instance, "vkEnumeratePhysicalDevices"));
  auto properties =
      reinterpret_cast<GetProperties>(getProc(instance, "vkGetPhysicalDeviceProperties"));
  auto memory = reinterpret_cast<GetMemoryProperties>(
      getProc(instance, "vkGetPhysicalDeviceMemoryProperties"));

  std::vector<GpuCandidate> found;
  if (enumerate != nullptr && properties != nullptr && memory != nullptr) {
    uint32_t count = 0;
    std::vector<VkPhysicalDevice> handles;
    VkResult result = enumerate(instance, &count, nullptr);
    if (result == kVkSuccess && count > 0) {
      handles.resize(count);
      result = enumerate(instance, &count, handles.data());
      if (result == kVkSuccess || result == kVkIncomplete) {
        handles.resize(count);
      } else {
        handles.clear();
      }
    }
    for (VkPhysicalDevice handle : handles) {
      auto props = std::make_unique<VkPhysicalDeviceProperties>();
      std::memset(props.get(), 0, sizeof *props);
      properties(handle, props.get());
      VkPhysicalDeviceMemoryProperties mem{};
      memory(handle, &mem);

      GpuCandidate device;
      device.kind = kindOf(props->deviceType);
      device.name.assign(props->deviceName, strnlen(props->deviceName, sizeof props->deviceName));
      for (uint32_t i = 0; i < mem.memoryHeapCount && i < 16; ++i) {
        const auto& heap = mem.memoryHeaps[i];
        if ((heap.flags & kMemoryHeapDeviceLocalBit) &&
            heap.size > device.largestDeviceLocalHeapBytes) {
          device.largestDeviceLocalHeapBytes = heap.size;
        }
      }
      found.push_back(std::move(device));
    }
  }
  if (destroy != nullptr) destroy(instance, nullptr);
  return found;
}

}  // namespace tallowbrook
