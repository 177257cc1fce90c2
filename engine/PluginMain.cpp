#include "engine/PluginMain.h"

#include <iterator>

#include "engine/KVScript.h"

VELDResolverProc gResolver = nullptr;

void* CallResolver(char const* name) { return gResolver ? gResolver(name) : nullptr; }
void* HCallResolver(char const* name) { return gResolver ? gResolver(name) : nullptr; }
void* Resolver(char const* name) { return gResolver ? gResolver(name) : nullptr; }

namespace {

// The host entries behind the wrappers, with the names the host knows them by.
#define KV_HOST_ENTRIES(X)                           \
  X(RegisterClass, "PluginRegisterClass")            \
  X(GetKVVersion, "VELDGetKVVersion")                \
  X(BuildString, "VELDBuildString")                  \
  X(SetStringEncoding, "VELDSetStringEncoding")      \
  X(ConvertString, "VELDConvertString")              \
  X(UnlockString, "VELDUnlockString")                \
  X(LockObject, "VELDLockObject")                    \
  X(UnlockObject, "VELDUnlockObject")                \
  X(NewInstance, "PluginNewInstance")                \
  X(RaiseException, "RuntimeRaiseException")         \
  X(GetEventInstance, "GetEventInstance")            \
  X(YieldToKV, "VELDYieldToKV")                      \
  X(GetStackLimit, "VELDGetStackLimit")              \
  X(SetStackLimit, "VELDSetStackLimit")              \
  X(InitStackChecker, "VELDInitStackChecker")        \
  X(CountClassMethods, "VELDCountClassMethods")      \
  X(GetClassMethod, "VELDGetClassMethod")            \
  X(CountClassProperties, "VELDCountClassProperties") \
  X(GetClassProperty, "VELDGetClassProperty")

enum HostEntry {
#define KV_ENTRY_ENUM(id, name) kEntry##id,
  KV_HOST_ENTRIES(KV_ENTRY_ENUM)
#undef KV_ENTRY_ENUM
  kHostEntryCount
};

char const* const kHostEntryNames[] = {
#define KV_ENTRY_NAME(id, name) name,
    KV_HOST_ENTRIES(KV_ENTRY_NAME)
#undef KV_ENTRY_NAME
};
static_assert(std::size(kHostEntryNames) == kHostEntryCount);

// One static pointer per wrapper, null until the host answered.
void* sHostEntries[kHostEntryCount];

template <class Proc>
Proc Entry(HostEntry which) {
  if (!sHostEntries[which]) sHostEntries[which] = CallResolver(kHostEntryNames[which]);
  return reinterpret_cast<Proc>(sHostEntries[which]);
}

}  // namespace

void VELDForgetResolvedEntries() {
  for (void*& entry : sHostEntries) entry = nullptr;
}

extern "C" void VELDPluginMain(VELDResolverProc resolver) {
  gResolver = resolver;
  VELDForgetResolvedEntries();
  // The host must offer this entry; a host without it can't load plug-ins.
  auto registerVersion = reinterpret_cast<void (*)(long)>(CallResolver("RegisterPluginVersion"));
  if (registerVersion) registerVersion(kPluginInterfaceVersion);
  PluginEntry();
}

void VELDRegisterClass(VELDclassDefinition* definition) {
  if (auto f = Entry<void (*)(VELDclassDefinition*)>(kEntryRegisterClass)) f(definition);
}

double VELDGetKVVersion() {
  auto f = Entry<double (*)()>(kEntryGetKVVersion);
  return f ? f() : 0.0;
}

VELDstringStruct* VELDBuildString(char const* text, int length) {
  auto f = Entry<VELDstringStruct* (*)(char const*, int)>(kEntryBuildString);
  return f ? f(text, length) : nullptr;
}

void VELDSetStringEncoding(VELDstringStruct* s, unsigned long encoding) {
  if (auto f = Entry<void (*)(VELDstringStruct*, unsigned long)>(kEntrySetStringEncoding))
    f(s, encoding);
}

VELDstringStruct* VELDConvertString(VELDstringStruct* s, unsigned long encoding) {
  auto f = Entry<VELDstringStruct* (*)(VELDstringStruct*, unsigned long)>(kEntryConvertString);
  return f ? f(s, encoding) : nullptr;
}

void VELDUnlockString(VELDstringStruct* s) {
  if (auto f = Entry<void (*)(VELDstringStruct*)>(kEntryUnlockString)) f(s);
}

void VELDLockObject(VELDobjectStruct* object) {
  if (auto f = Entry<void (*)(VELDobjectStruct*)>(kEntryLockObject)) f(object);
}

void VELDUnlockObject(VELDobjectStruct* object) {
  if (auto f = Entry<void (*)(VELDobjectStruct*)>(kEntryUnlockObject)) f(object);
}

VELDobjectStruct* VELDnewInstance(char const* className) {
  auto f = Entry<VELDobjectStruct* (*)(char const*)>(kEntryNewInstance);
  return f ? f(className) : nullptr;
}

void VELDRaiseException(VELDobjectStruct* object) {
  if (auto f = Entry<void (*)(VELDobjectStruct*)>(kEntryRaiseException)) f(object);
}

void* VELDGetEventInstance(VELDcontrolInstanceStruct* instance, VELDevent* event) {
  auto f = Entry<void* (*)(VELDcontrolInstanceStruct*, VELDevent*)>(kEntryGetEventInstance);
  return f ? f(instance, event) : nullptr;
}

void VELDYieldToKV() {
  if (auto f = Entry<void (*)()>(kEntryYieldToKV)) f();
}

unsigned long VELDGetStackLimit() {
  auto f = Entry<unsigned long (*)()>(kEntryGetStackLimit);
  return f ? f() : 0;
}

void VELDSetStackLimit(unsigned long limit) {
  if (auto f = Entry<void (*)(unsigned long)>(kEntrySetStackLimit)) f(limit);
}

void VELDInitStackChecker(unsigned long value) {
  if (auto f = Entry<void (*)(unsigned long)>(kEntryInitStackChecker)) f(value);
}

unsigned long VELDCountClassMethods(VELDclassRefStruct* classRef) {
  auto f = Entry<unsigned long (*)(VELDclassRefStruct*)>(kEntryCountClassMethods);
  return f ? f(classRef) : 0;
}

bool VELDGetClassMethod(VELDclassRefStruct* classRef, unsigned long index, void** entry,
                        string* declaration) {
  auto f = Entry<bool (*)(VELDclassRefStruct*, unsigned long, void**, string*)>(
      kEntryGetClassMethod);
  return f ? f(classRef, index, entry, declaration) : false;
}

unsigned long VELDCountClassProperties(VELDclassRefStruct* classRef) {
  auto f = Entry<unsigned long (*)(VELDclassRefStruct*)>(kEntryCountClassProperties);
  return f ? f(classRef) : 0;
}

bool VELDGetClassProperty(VELDclassRefStruct* classRef, unsigned long index, void** getter,
                          void** setter, long* param, string* declaration) {
  auto f = Entry<bool (*)(VELDclassRefStruct*, unsigned long, void**, void**, long*, string*)>(
      kEntryGetClassProperty);
  return f ? f(classRef, index, getter, setter, param, declaration) : false;
}
