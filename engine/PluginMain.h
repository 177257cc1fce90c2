// The plug-in face of the engine: the one exported entry, the resolver
// through which every host service is asked for by name, the records that
// cross the boundary, and the thin VELD wrappers around the host's entries.
//
// Invariants:
// - gResolver is set by VELDPluginMain before any wrapper runs.
// - A wrapper asks the resolver for its entry on first use and keeps the
//   answer; while the answer is null it asks again on every call and does
//   nothing, returning 0, false or 0.0. A missing entry is never an error.
// - VELDstringStruct is a stringStorage record seen from the host's side:
//   the two layouts are pinned equal below, so a pointer crosses unchanged.
// - Host entries use the platform's plain C calling convention.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "foundation/String.h"

typedef void* (*VELDResolverProc)(char const* name);

// The host's resolver; null until VELDPluginMain.
extern VELDResolverProc gResolver;

extern "C" void VELDPluginMain(VELDResolverProc resolver);

// Each returns gResolver(name), uncached; null when there is no resolver.
void* CallResolver(char const* name);
void* HCallResolver(char const* name);
void* Resolver(char const* name);

// Forgets every entry the wrappers have resolved, so the next call of each
// asks the resolver again. VELDPluginMain calls it, as the entries of an
// earlier resolver mean nothing to a new one.
void VELDForgetResolvedEntries();

// ---------------------------------------------------------------------------
// Records that cross the boundary

// A host string: the layout of stringStorage. The accessors take the record
// as an argument, since a null record is the empty string.
struct VELDstringStruct {
  uint32_t mRefCount;
  char* mBuffer;
  uint32_t mAllocLength;
  uint32_t mLength;
  uint32_t mEncoding;

  static long Length(VELDstringStruct const* s) { return s ? (long)s->mLength : 0; }
  static char const* CString(VELDstringStruct const* s) { return s ? s->mBuffer + 1 : ""; }
  static unsigned char const* PString(VELDstringStruct const* s) {
    return s ? (unsigned char const*)s->mBuffer : kNullPString;
  }
};

static_assert(std::is_standard_layout_v<VELDstringStruct>);
static_assert(sizeof(VELDstringStruct) == sizeof(stringStorage));
static_assert(offsetof(VELDstringStruct, mRefCount) == offsetof(stringStorage, mRefCount));
static_assert(offsetof(VELDstringStruct, mBuffer) == offsetof(stringStorage, mBuffer));
static_assert(offsetof(VELDstringStruct, mAllocLength) == offsetof(stringStorage, mAllocLength));
static_assert(offsetof(VELDstringStruct, mLength) == offsetof(stringStorage, mLength));
static_assert(offsetof(VELDstringStruct, mEncoding) == offsetof(stringStorage, mEncoding));

inline stringStorage* AsStringStorage(VELDstringStruct* s) {
  return reinterpret_cast<stringStorage*>(s);
}
inline VELDstringStruct* AsHostString(stringStorage* s) {
  return reinterpret_cast<VELDstringStruct*>(s);
}

// A host class reference: opaque to the engine.
struct VELDclassRefStruct;

// A host object. Only the second word is the engine's business; the
// instance data lie at the offset the host wrote into the class definition.
struct VELDobjectStruct {
  uint32_t mHostWord;
  VELDclassRefStruct* mClass;
};
static_assert(std::is_standard_layout_v<VELDobjectStruct>);
static_assert(offsetof(VELDobjectStruct, mClass) == 4);
constexpr int32_t kHostObjectClassOffset = offsetof(VELDobjectStruct, mClass);

// Objects with events are addressed as control instances by the host's
// event calls; on this interface they are the same object.
typedef VELDobjectStruct VELDcontrolInstanceStruct;

// Setter and getter columns: -1 says the host reads or writes the field
// itself, with the row's parameter as the field's offset in the data.
inline void* const kHostAccessesField = reinterpret_cast<void*>(-1);

// A row of a class's property record.
struct VELDproperty {
  char const* group;
  char const* name;
  char const* type;
  long flags;
  void* getter;
  void* setter;
  long param;
  long reserved[3];
};
static_assert(offsetof(VELDproperty, getter) == 16 && offsetof(VELDproperty, param) == 24);
static_assert(sizeof(VELDproperty) == 40);

// A row of a class's method record.
struct VELDmethodDefinition {
  void* function;
  long reserved;
  char const* declaration;
};
static_assert(offsetof(VELDmethodDefinition, declaration) == 8 && sizeof(VELDmethodDefinition) == 12);

// A row of a class's event record. The engine names an event by the
// address of its row; the second word belongs to the host.
struct VELDevent {
  char const* declaration;
  long forHost;
};
static_assert(sizeof(VELDevent) == 8);

typedef void (*VELDObjectProc)(VELDobjectStruct* object);

// A class as the plug-in describes it.
struct VELDclassDefinition {
  long version;
  char const* name;
  char const* superName;
  long dataSize;
  // Where the instance data start in an object; written by the host when it
  // registers the class.
  long dataOffset;
  VELDObjectProc initializer;
  VELDObjectProc finalizer;
  VELDproperty* properties;
  long propertyCount;
  VELDmethodDefinition* methods;
  long methodCount;
  VELDevent* events;
  long eventCount;
  long reserved[7];
};
static_assert(std::is_standard_layout_v<VELDclassDefinition>);
static_assert(offsetof(VELDclassDefinition, name) == 4);
static_assert(offsetof(VELDclassDefinition, superName) == 8);
static_assert(offsetof(VELDclassDefinition, dataSize) == 12);
static_assert(offsetof(VELDclassDefinition, dataOffset) == 16);
static_assert(offsetof(VELDclassDefinition, initializer) == 20);
static_assert(offsetof(VELDclassDefinition, finalizer) == 24);
static_assert(offsetof(VELDclassDefinition, properties) == 28);
static_assert(offsetof(VELDclassDefinition, propertyCount) == 32);
static_assert(offsetof(VELDclassDefinition, methods) == 36);
static_assert(offsetof(VELDclassDefinition, methodCount) == 40);
static_assert(offsetof(VELDclassDefinition, events) == 44);
static_assert(offsetof(VELDclassDefinition, eventCount) == 48);
static_assert(sizeof(VELDclassDefinition) == 80);
constexpr int32_t kClassDataOffsetOffset = offsetof(VELDclassDefinition, dataOffset);

// The version of the plug-in interface this engine speaks, and of its records.
constexpr long kPluginInterfaceVersion = 6;

// ---------------------------------------------------------------------------
// Wrappers of the host's entries. Host entry names are in PluginMain.cpp.

void VELDRegisterClass(VELDclassDefinition* definition);
// 0.0 when the host doesn't say.
double VELDGetKVVersion();
VELDstringStruct* VELDBuildString(char const* text, int length);
void VELDSetStringEncoding(VELDstringStruct* s, unsigned long encoding);
VELDstringStruct* VELDConvertString(VELDstringStruct* s, unsigned long encoding);
void VELDUnlockString(VELDstringStruct* s);
void VELDLockObject(VELDobjectStruct* object);
void VELDUnlockObject(VELDobjectStruct* object);
// A new object of the class of that name, with one lock, or null.
VELDobjectStruct* VELDnewInstance(char const* className);
void VELDRaiseException(VELDobjectStruct* object);
// The handler of `event` on `instance`, or null if none is set.
void* VELDGetEventInstance(VELDcontrolInstanceStruct* instance, VELDevent* event);
void VELDYieldToKV();
unsigned long VELDGetStackLimit();
void VELDSetStackLimit(unsigned long limit);
void VELDInitStackChecker(unsigned long value);
unsigned long VELDCountClassMethods(VELDclassRefStruct* classRef);
// The host fills `entry` and `declaration`; false when it can't.
bool VELDGetClassMethod(VELDclassRefStruct* classRef, unsigned long index, void** entry,
                        string* declaration);
unsigned long VELDCountClassProperties(VELDclassRefStruct* classRef);
bool VELDGetClassProperty(VELDclassRefStruct* classRef, unsigned long index, void** getter,
                          void** setter, long* param, string* declaration);

// The instance data of `object` as described by `definition`: arithmetic
// only, with the offset the host wrote at registration.
inline void* VELDGetClassData(VELDobjectStruct* object, VELDclassDefinition* definition) {
  return reinterpret_cast<char*>(object) + definition->dataOffset;
}

// The class reference a host object carries in its second word.
inline VELDclassRefStruct* VELDClassOf(VELDobjectStruct* object) {
  return object ? object->mClass : nullptr;
}
