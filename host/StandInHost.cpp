#include "host/StandInHost.h"

#include "host/HostLibrary.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "foundation/TextEncodingUtil.h"
#include "foundation/Utility.h"

namespace {

// Word 0 the lock count, word 1 the class: the instance data start after them.
constexpr long kObjectHeaderSize = 8;
constexpr double kDefaultVersion = 4.5;

struct HostClass {
  VELDclassDefinition* definition;
  HostClass* parent;
  // Where this class's data end in an object, so a subclass's data begin here.
  long dataEnd;
};

struct HostObject {
  long lockCount;
  HostClass* hostClass;
};
static_assert(sizeof(HostObject) == kObjectHeaderSize);
static_assert(offsetof(HostObject, hostClass) == kHostObjectClassOffset);

struct Handler {
  std::string eventName;
  void* function;
};

// Class records are never freed: an object may outlive a reset that
// unregistered its class.
std::vector<std::unique_ptr<HostClass>> sAllClasses;
std::vector<HostClass*> sRegistered;
std::vector<std::unique_ptr<VELDclassDefinition>> sBuiltInDefinitions;
std::map<VELDobjectStruct*, std::vector<Handler>> sHandlers;
std::set<std::string> sWithheld;
std::map<std::string, void*> sDefinedEntries;
double sVersion = kDefaultVersion;
long sLiveObjects = 0;
VELDobjectStruct* sRaised = nullptr;
long sRaiseCount = 0;
long sYieldCount = 0;
unsigned long sStackLimit = 0;
unsigned long sStackCheckerValue = 0;
bool sBuiltInsRegistered = false;

bool SameName(char const* a, char const* b) { return ustrcmpi(a, b) == 0; }

HostObject* AsHostObject(VELDobjectStruct* object) { return reinterpret_cast<HostObject*>(object); }
HostClass* ClassOf(VELDobjectStruct* object) {
  return object ? AsHostObject(object)->hostClass : nullptr;
}

HostClass* FindClass(char const* name) {
  if (!name) return nullptr;
  for (HostClass* c : sRegistered)
    if (SameName(c->definition->name, name)) return c;
  return nullptr;
}

// The name of an event or method: the text before "(", without a leading
// Function or Sub.
std::string MemberName(char const* declaration) {
  std::string text(declaration ? declaration : "");
  for (char const* keyword : {"Function ", "Sub "}) {
    size_t n = strlen(keyword);
    if (text.size() >= n && ustrcmpi(text.c_str(), (long)n, keyword, (long)n) == 0) {
      text = text.substr(n);
      break;
    }
  }
  size_t paren = text.find('(');
  if (paren != std::string::npos) text.resize(paren);
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

bool DeclaresEvent(HostClass* c, char const* eventName) {
  for (; c; c = c->parent)
    for (long i = 0; i < c->definition->eventCount; ++i)
      if (SameName(MemberName(c->definition->events[i].declaration).c_str(), eventName))
        return true;
  return false;
}

// The event row's name, if the row belongs to the object's classes.
bool EventRowName(HostClass* c, VELDevent* row, std::string* name) {
  for (; c; c = c->parent) {
    VELDclassDefinition* d = c->definition;
    if (d->events && row >= d->events && row < d->events + d->eventCount) {
      *name = MemberName(row->declaration);
      return true;
    }
  }
  return false;
}

void RunInitializers(HostClass* c, VELDobjectStruct* object) {
  if (!c) return;
  RunInitializers(c->parent, object);
  if (c->definition->initializer) c->definition->initializer(object);
}

void DestroyObject(VELDobjectStruct* object) {
  for (HostClass* c = ClassOf(object); c; c = c->parent)
    if (c->definition->finalizer) c->definition->finalizer(object);
  sHandlers.erase(object);
  free(object);
  --sLiveObjects;
}

// A property row and where its field lies: the row's parameter counts from
// the start of the declaring class's instance data.
struct PropertyRef {
  VELDproperty* row = nullptr;
  char* field = nullptr;
};

PropertyRef FindProperty(VELDobjectStruct* object, char const* name) {
  PropertyRef found;
  for (HostClass* c = ClassOf(object); c; c = c->parent)
    for (long i = 0; i < c->definition->propertyCount; ++i)
      if (SameName(c->definition->properties[i].name, name)) {
        found.row = &c->definition->properties[i];
        found.field = reinterpret_cast<char*>(object) + c->definition->dataOffset + found.row->param;
        return found;
      }
  return found;
}

// ---------------------------------------------------------------------------
// The entries the resolver hands out

void HostRegisterPluginVersion(long) {}

void HostRegisterClass(VELDclassDefinition* definition) { StandInRegisterClass(definition); }

double HostGetKVVersion() { return sVersion; }

VELDstringStruct* HostBuildString(char const* text, int length) {
  string s;
  s.ConstructFromBuffer(text, length);
  return AsHostString(s.ExtractStringStorage());
}

void HostSetStringEncoding(VELDstringStruct* s, unsigned long encoding) {
  if (s) s->mEncoding = encoding;
}

VELDstringStruct* HostConvertString(VELDstringStruct* s, unsigned long encoding) {
  string converted = ConvertEncoding(string(AsStringStorage(s)), encoding);
  return AsHostString(converted.ExtractStringStorage());
}

void HostUnlockString(VELDstringStruct* s) { stringStorage::RemoveReference(AsStringStorage(s)); }

void HostLockObject(VELDobjectStruct* object) {
  if (object) ++AsHostObject(object)->lockCount;
}

void HostUnlockObject(VELDobjectStruct* object) {
  if (!object || AsHostObject(object)->lockCount < 1) return;
  if (--AsHostObject(object)->lockCount == 0) DestroyObject(object);
}

VELDobjectStruct* HostNewInstance(char const* className) {
  HostClass* c = FindClass(className);
  if (!c) return nullptr;
  long size = c->dataEnd > kObjectHeaderSize ? c->dataEnd : kObjectHeaderSize;
  auto* object = static_cast<VELDobjectStruct*>(calloc(1, (size_t)size));
  if (!object) return nullptr;
  AsHostObject(object)->lockCount = 1;
  AsHostObject(object)->hostClass = c;
  ++sLiveObjects;
  RunInitializers(c, object);
  return object;
}

// The raise takes over the caller's lock: a plug-in hands its new exception
// object to the host and keeps no reference.
void HostRaiseException(VELDobjectStruct* object) {
  HostUnlockObject(sRaised);
  sRaised = object;
  ++sRaiseCount;
}

void* HostGetEventInstance(VELDcontrolInstanceStruct* instance, VELDevent* row) {
  std::string name;
  if (!instance || !row || !EventRowName(ClassOf(instance), row, &name)) return nullptr;
  auto found = sHandlers.find(instance);
  if (found == sHandlers.end()) return nullptr;
  for (Handler const& h : found->second)
    if (SameName(h.eventName.c_str(), name.c_str())) return h.function;
  return nullptr;
}

void HostYieldToKV() { ++sYieldCount; }
unsigned long HostGetStackLimit() { return sStackLimit; }
void HostSetStackLimit(unsigned long limit) { sStackLimit = limit; }
void HostInitStackChecker(unsigned long value) { sStackCheckerValue = value; }

VELDclassDefinition* DefinitionOf(VELDclassRefStruct* classRef) {
  return classRef ? reinterpret_cast<HostClass*>(classRef)->definition : nullptr;
}

unsigned long HostCountClassMethods(VELDclassRefStruct* classRef) {
  VELDclassDefinition* d = DefinitionOf(classRef);
  return d ? (unsigned long)d->methodCount : 0;
}

bool HostGetClassMethod(VELDclassRefStruct* classRef, unsigned long index, void** entry,
                        string* declaration) {
  VELDclassDefinition* d = DefinitionOf(classRef);
  if (!d || index >= (unsigned long)d->methodCount) return false;
  *entry = d->methods[index].function;
  *declaration = string(d->methods[index].declaration);
  return true;
}

unsigned long HostCountClassProperties(VELDclassRefStruct* classRef) {
  VELDclassDefinition* d = DefinitionOf(classRef);
  return d ? (unsigned long)d->propertyCount : 0;
}

// A property's declaration is composed from its row: "name As type".
bool HostGetClassProperty(VELDclassRefStruct* classRef, unsigned long index, void** getter,
                          void** setter, long* param, string* declaration) {
  VELDclassDefinition* d = DefinitionOf(classRef);
  if (!d || index >= (unsigned long)d->propertyCount) return false;
  VELDproperty const& row = d->properties[index];
  *getter = row.getter;
  *setter = row.setter;
  *param = row.param;
  *declaration = string(row.name) + string(" As ") + string(row.type);
  return true;
}

struct NamedEntry {
  char const* name;
  void* entry;
};

#define KV_ENTRY(name, function) {name, reinterpret_cast<void*>(&function)}
NamedEntry const kEntries[] = {
    KV_ENTRY("RegisterPluginVersion", HostRegisterPluginVersion),
    KV_ENTRY("PluginRegisterClass", HostRegisterClass),
    KV_ENTRY("VELDGetKVVersion", HostGetKVVersion),
    KV_ENTRY("VELDBuildString", HostBuildString),
    KV_ENTRY("VELDSetStringEncoding", HostSetStringEncoding),
    KV_ENTRY("VELDConvertString", HostConvertString),
    KV_ENTRY("VELDUnlockString", HostUnlockString),
    KV_ENTRY("VELDLockObject", HostLockObject),
    KV_ENTRY("VELDUnlockObject", HostUnlockObject),
    KV_ENTRY("PluginNewInstance", HostNewInstance),
    KV_ENTRY("RuntimeRaiseException", HostRaiseException),
    KV_ENTRY("GetEventInstance", HostGetEventInstance),
    KV_ENTRY("VELDYieldToKV", HostYieldToKV),
    KV_ENTRY("VELDGetStackLimit", HostGetStackLimit),
    KV_ENTRY("VELDSetStackLimit", HostSetStackLimit),
    KV_ENTRY("VELDInitStackChecker", HostInitStackChecker),
    KV_ENTRY("VELDCountClassMethods", HostCountClassMethods),
    KV_ENTRY("VELDGetClassMethod", HostGetClassMethod),
    KV_ENTRY("VELDCountClassProperties", HostCountClassProperties),
    KV_ENTRY("VELDGetClassProperty", HostGetClassProperty),
};
#undef KV_ENTRY

void RegisterBuiltIn(char const* name, char const* superName) {
  auto d = std::make_unique<VELDclassDefinition>();
  *d = VELDclassDefinition{};
  d->version = kPluginInterfaceVersion;
  d->name = name;
  d->superName = superName;
  StandInRegisterClass(d.get());
  sBuiltInDefinitions.push_back(std::move(d));
}

void EnsureBuiltIns() {
  if (sBuiltInsRegistered) return;
  sBuiltInsRegistered = true;
  if (!sBuiltInDefinitions.empty()) {
    for (auto& d : sBuiltInDefinitions) StandInRegisterClass(d.get());
    return;
  }
  RegisterBuiltIn("RuntimeException", nullptr);
  RegisterBuiltIn("stackOverflowException", "RuntimeException");
  RegisterBuiltIn("OutOfBoundsException", "RuntimeException");
  // The script library's own exceptions, so an unhandled one is named.
  RegisterBuiltIn("NilObjectException", "RuntimeException");
  RegisterBuiltIn("IllegalCastException", "RuntimeException");
  RegisterBuiltIn("TypeMismatchException", "RuntimeException");
  RegisterBuiltIn("OutOfMemoryException", "RuntimeException");
}

}  // namespace

void* StandInResolve(char const* name) {
  if (!name || sWithheld.count(name)) return nullptr;
  EnsureBuiltIns();
  for (NamedEntry const& e : kEntries)
    if (strcmp(e.name, name) == 0) return e.entry;
  auto found = sDefinedEntries.find(name);
  return found == sDefinedEntries.end() ? nullptr : found->second;
}

void StandInHostReset() {
  HostUnlockObject(sRaised);
  sRaised = nullptr;
  sRaiseCount = 0;
  sRegistered.clear();
  sBuiltInsRegistered = false;
  sHandlers.clear();
  sWithheld.clear();
  sDefinedEntries.clear();
  sVersion = kDefaultVersion;
  sYieldCount = 0;
  sStackLimit = 0;
  sStackCheckerValue = 0;
  EnsureBuiltIns();
  // A host application supplies its library functions from the start.
  RegisterHostLibrary();
}

void StandInWithhold(char const* entryName) { sWithheld.insert(entryName); }
void StandInProvide(char const* entryName) { sWithheld.erase(entryName); }
void StandInDefineEntry(char const* entryName, void* entry) { sDefinedEntries[entryName] = entry; }
void StandInSetVersion(double version) { sVersion = version; }

bool StandInRegisterClass(VELDclassDefinition* definition) {
  if (!definition || !definition->name) return false;
  EnsureBuiltIns();
  HostClass* parent = nullptr;
  if (definition->superName) {
    parent = FindClass(definition->superName);
    if (!parent) return false;
  }
  // Registering a name again replaces the earlier class for new objects.
  for (size_t i = 0; i < sRegistered.size(); ++i)
    if (SameName(sRegistered[i]->definition->name, definition->name)) {
      sRegistered.erase(sRegistered.begin() + (long)i);
      break;
    }
  long offset = parent ? parent->dataEnd : kObjectHeaderSize;
  offset = (offset + 3) & ~3L;
  definition->dataOffset = offset;
  sAllClasses.push_back(
      std::make_unique<HostClass>(HostClass{definition, parent, offset + definition->dataSize}));
  sRegistered.push_back(sAllClasses.back().get());
  return true;
}

bool StandInIsClassRegistered(char const* className) {
  EnsureBuiltIns();
  return FindClass(className) != nullptr;
}

long StandInLiveObjectCount() { return sLiveObjects; }
long StandInLockCount(VELDobjectStruct* object) {
  return object ? AsHostObject(object)->lockCount : 0;
}

char const* StandInClassName(VELDobjectStruct* object) {
  HostClass* c = ClassOf(object);
  return c ? c->definition->name : "";
}

bool StandInIsA(VELDobjectStruct* object, char const* className) {
  for (HostClass* c = ClassOf(object); c; c = c->parent)
    if (SameName(c->definition->name, className)) return true;
  return false;
}

VELDobjectStruct* StandInRaisedException() { return sRaised; }
long StandInRaiseCount() { return sRaiseCount; }
void StandInClearRaisedException() {
  HostUnlockObject(sRaised);
  sRaised = nullptr;
}

bool StandInSetEventHandler(VELDobjectStruct* object, char const* eventName, void* handler) {
  if (!object || !DeclaresEvent(ClassOf(object), eventName)) return false;
  std::vector<Handler>& handlers = sHandlers[object];
  for (size_t i = 0; i < handlers.size(); ++i)
    if (SameName(handlers[i].eventName.c_str(), eventName)) {
      handlers.erase(handlers.begin() + (long)i);
      break;
    }
  if (handler) handlers.push_back(Handler{eventName, handler});
  return true;
}

VELDstringStruct* StandInString(char const* text, long length, unsigned long encoding) {
  VELDstringStruct* s = HostBuildString(text, (int)length);
  HostSetStringEncoding(s, encoding);
  return s;
}

VELDstringStruct* StandInString(char const* text, unsigned long encoding) {
  return StandInString(text, text ? (long)strlen(text) : 0, encoding);
}

bool StandInSetIntegerProperty(VELDobjectStruct* object, char const* name, long value) {
  PropertyRef p = FindProperty(object, name);
  VELDproperty* row = p.row;
  if (!row || !row->setter) return false;
  if (row->setter == kHostAccessesField)
    *reinterpret_cast<long*>(p.field) = value;
  else
    reinterpret_cast<void (*)(VELDobjectStruct*, long, long)>(row->setter)(object, row->param,
                                                                          value);
  return true;
}

bool StandInSetStringProperty(VELDobjectStruct* object, char const* name,
                              VELDstringStruct* value) {
  PropertyRef p = FindProperty(object, name);
  VELDproperty* row = p.row;
  if (!row || !row->setter) return false;
  if (row->setter == kHostAccessesField) {
    auto* field = reinterpret_cast<VELDstringStruct**>(p.field);
    if (value) ++value->mRefCount;
    HostUnlockString(*field);
    *field = value;
  } else {
    reinterpret_cast<void (*)(VELDobjectStruct*, long, VELDstringStruct*)>(row->setter)(
        object, row->param, value);
  }
  return true;
}

bool StandInSetObjectProperty(VELDobjectStruct* object, char const* name,
                              VELDobjectStruct* value) {
  PropertyRef p = FindProperty(object, name);
  VELDproperty* row = p.row;
  if (!row || !row->setter) return false;
  if (row->setter == kHostAccessesField) {
    auto* field = reinterpret_cast<VELDobjectStruct**>(p.field);
    HostLockObject(value);
    HostUnlockObject(*field);
    *field = value;
  } else {
    reinterpret_cast<void (*)(VELDobjectStruct*, long, VELDobjectStruct*)>(row->setter)(
        object, row->param, value);
  }
  return true;
}

// Getters of these stand-in reads are the field itself: the host reads it.
bool StandInGetIntegerProperty(VELDobjectStruct* object, char const* name, long* value) {
  PropertyRef p = FindProperty(object, name);
  VELDproperty* row = p.row;
  if (!row || row->getter != kHostAccessesField) return false;
  *value = *reinterpret_cast<long*>(p.field);
  return true;
}

VELDstringStruct* StandInGetStringProperty(VELDobjectStruct* object, char const* name) {
  PropertyRef p = FindProperty(object, name);
  VELDproperty* row = p.row;
  if (!row || row->getter != kHostAccessesField) return nullptr;
  return *reinterpret_cast<VELDstringStruct**>(p.field);
}

VELDobjectStruct* StandInGetObjectProperty(VELDobjectStruct* object, char const* name) {
  PropertyRef p = FindProperty(object, name);
  VELDproperty* row = p.row;
  if (!row || row->getter != kHostAccessesField) return nullptr;
  return *reinterpret_cast<VELDobjectStruct**>(p.field);
}

bool StandInCallMethod(VELDobjectStruct* object, char const* name, long argument) {
  for (HostClass* c = ClassOf(object); c; c = c->parent) {
    for (long i = 0; i < c->definition->methodCount; ++i) {
      VELDmethodDefinition const& m = c->definition->methods[i];
      if (!SameName(MemberName(m.declaration).c_str(), name)) continue;
      char const* open = strchr(m.declaration, '(');
      bool takesArgument = open && open[1] != ')';
      if (takesArgument)
        reinterpret_cast<void (*)(VELDobjectStruct*, long)>(m.function)(object, argument);
      else
        reinterpret_cast<void (*)(VELDobjectStruct*)>(m.function)(object);
      return true;
    }
  }
  return false;
}

long StandInYieldCount() { return sYieldCount; }
unsigned long StandInStackLimit() { return sStackLimit; }
unsigned long StandInStackCheckerValue() { return sStackCheckerValue; }
