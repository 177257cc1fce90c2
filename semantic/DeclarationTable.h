// The declaration tables: what the miner pre-pass, the script library and
// the host contribute before any code is compiled (modules, classes,
// methods, parameters, properties, constants, events), and where the
// compile proper looks names up. Variables with storage live in the symbol
// tables instead; a PropertyDeclaration is the declaration of a field or
// property that a symbol stands for.
//
// Invariants:
// - Every name match ignores case, because string's operator== does.
// - A method's GetName() is its mangled name, GetBaseName() the name as
//   written; LookupMethod finds by the former, LookupMethodsByBase by the
//   latter.
// - Items are counted by lockCount. A new item has 0; every Add... of a
//   container locks it once and the container's destructor unlocks all it
//   holds, so an item in two lists (a method in its class and inherited by
//   a subclass, a class exported to an enclosing module) lives until both
//   lists have gone. An item never added anywhere must be deleted by its
//   maker: an Unlock would take it below 0.
// - `parent` pointers of classes and modules are not locked: a module is
//   Unlink()ed before it is let go, so nothing dangles.
// - The tables report nothing: a lookup that finds nothing answers null, a
//   null handle or false, and duplicates are not refused here.
#pragma once

#include <cstdint>

#include "foundation/Ref.h"
#include "foundation/SimpleVector.h"
#include "foundation/String.h"
#include "foundation/StringMap.h"
#include "ir/DataTypes.h"

class FunctionDeclaration;
class ClassDeclaration;
class ModuleDeclaration;

// Selects among the overloads of one base name by their Extends and Assigns
// designators. A method extends if its first parameter has designator
// Extends, and assigns if its last one has designator Assigns.
enum MethodFilter : int32_t {
  kFilterAll = 0,
  kFilterPlain = 1,            // neither extends nor assigns
  kFilterExtends = 2,          // extends, doesn't assign
  kFilterAssigns = 3,          // assigns, doesn't extend
  kFilterExtendsAssigns = 4,   // both
};

class LockableDeclarationItem {
public:
  virtual ~LockableDeclarationItem() {}

  void Lock() { ++lockCount; }
  // Deletes the item through its virtual destructor when the count reaches 0.
  void Unlock();

  int32_t lockCount = 0;
};

class Declaration : public LockableDeclarationItem {
public:
  virtual string GetName() const { return name; }
  virtual void SetName(string n) { name = n; }

  string name;
};

class TypedDeclaration : public Declaration {
public:
  // In a FunctionDeclaration the null type marks a Sub; in a class the
  // class name of this type is the parent's name.
  IRDataType& GetType() { return type; }
  IRDataType const& GetType() const { return type; }
  void SetType(IRDataType const& t) { type = t; }

  IRDataType type;
};

class ScopedDeclaration : public TypedDeclaration {
public:
  enum Scope : int32_t {
    kScopePublic = 0,      // anyone may use it
    kScopeProtected = 1,   // the class and its descendants
    kScopePrivate = 2,     // the class itself
  };

  Scope GetScope() const { return scope; }
  void SetScope(Scope s) { scope = s; }

  Scope scope = kScopePublic;
};

class ConstantDeclaration : public ScopedDeclaration {
public:
  static ConstantDeclaration* New() { return new ConstantDeclaration; }

  IRValue GetValue() const { return value; }
  void SetValue(IRValue v) { value = v; }

  IRValue value;
};

class ParameterDeclaration : public TypedDeclaration {
public:
  enum Mode : int32_t {
    kParamRequired = 0,   // the call must give an argument
    kParamOptional = 1,   // may be left out; defaultValue is passed then
    kParamHidden = 2,     // takes no argument: defaultValue is always passed
  };
  // Values of `designator`.
  enum Designator : int32_t {
    kDesignatorNone = 0,
    kDesignatorAssigns = 1,
    kDesignatorExtends = 2,
    kDesignatorParamArray = 3,
  };

  static ParameterDeclaration* New() { return new ParameterDeclaration; }

  int32_t GetDesignator() const { return designator; }
  void SetDesignator(int32_t d) { designator = d; }
  Mode GetMode() const { return mode; }
  void SetMode(Mode m) { mode = m; }
  IRValue GetDefaultValue() const { return defaultValue; }
  void SetDefaultValue(IRValue v) { defaultValue = v; }

  int32_t designator = kDesignatorNone;
  Mode mode = kParamRequired;
  IRValue defaultValue;
};

class PropertyDeclaration : public ScopedDeclaration {
public:
  static PropertyDeclaration* New() { return new PropertyDeclaration; }

  int32_t GetOffset() const { return offset; }
  void SetOffset(int32_t o) { offset = o; }
  int32_t GetIndex() const { return index; }
  void SetIndex(int32_t i) { index = i; }
  string GetLinkName() const { return linkName; }
  void SetLinkName(string n) { linkName = n; }

  // True if the property has accessors; false for a plain field.
  bool isComputed = false;
  string getterName;
  // A library a getter call names beside getterName; nothing writes it yet.
  string getterHostName;
  string setterName;
  string setterHostName;
  // The field's offset in the object, or the property's selector.
  int32_t offset = 0;
  // Running number in the class, ancestors' properties counted in.
  int32_t index = -1;
  // The qualified name, which is also the link name of the storage.
  string linkName;
};

// Holds methods in order of adding, and for each base name the positions of
// its overloads, so that overload selection needn't scan every method.
class FunctionDeclarationListOwner {
public:
  FunctionDeclarationListOwner() = default;
  FunctionDeclarationListOwner(FunctionDeclarationListOwner const&) = delete;
  FunctionDeclarationListOwner& operator=(FunctionDeclarationListOwner const&) = delete;
  virtual ~FunctionDeclarationListOwner();

  // A list the caller owns of the overloads of `baseName` that pass
  // `filter`, in order of adding; possibly empty. A null handle means the
  // base name is unknown here.
  virtual Ref<SimpleVector<FunctionDeclaration*> > LookupMethodsByBase(string baseName,
                                                                       MethodFilter filter) const;

  // Locks the method.
  void AddMethod(FunctionDeclaration* method);
  // By mangled name; the first match, or null.
  FunctionDeclaration* LookupMethod(string name) const;
  FunctionDeclaration* GetMethod(unsigned int i) const { return methods[i]; }
  unsigned int CountMethods() const { return (unsigned int)methods.size(); }

  SimpleVector<FunctionDeclaration*> methods;
  // Base name to index in `overloads`; null until the first method.
  StringMap<unsigned int>* byBaseName = nullptr;
  SimpleVector<SimpleVector<int>*> overloads;

protected:
  // This owner's own overloads only, appended to `into` (made if null).
  // Answers whether the base name is known here.
  bool CollectOwnOverloads(string const& baseName, MethodFilter filter,
                           Ref<SimpleVector<FunctionDeclaration*> >& into) const;
};

class FunctionDeclaration : public ScopedDeclaration, public FunctionDeclarationListOwner {
public:
  enum DispatchMethod : int32_t {
    kDispatchNormal = 0,      // directly, by link name
    kDispatchVtable = 1,      // through the object's method table
    kDispatchEvent = 2,       // through the object's event table
    kDispatchHardCoded = 3,   // at an address known at compile time
  };

  static FunctionDeclaration* New() { return new FunctionDeclaration; }
  ~FunctionDeclaration() override;

  ParameterDeclaration* GetParameter(unsigned int i) const { return parameters[i]; }
  unsigned int CountParameters() const { return (unsigned int)parameters.size(); }
  // Both lock the parameter.
  void AddParameter(ParameterDeclaration* p);
  void InsertParameter(unsigned int at, ParameterDeclaration* p);

  // Locks the constant. Lookup is linear, in this function only.
  void AddConstant(ConstantDeclaration* c);
  ConstantDeclaration* LookupConstant(string name) const;

  string GetBaseName() const { return baseName; }
  void SetBaseName(string n) { baseName = n; }
  DispatchMethod GetDispatchMethod() const { return dispatchMethod; }
  void SetDispatchMethod(DispatchMethod d) { dispatchMethod = d; }
  int32_t GetDispatchID() const { return dispatchID; }
  void SetDispatchID(int32_t id) { dispatchID = id; }
  string GetSourceLibrary() const { return sourceLibrary; }
  void SetSourceLibrary(string lib) { sourceLibrary = lib; }
  void SetExternal(bool e) { isExternal = e; }
  // True for a declared external: the flag, or a library named.
  bool External() const { return isExternal || sourceLibrary.Length() != 0; }
  bool IsOverridden() const { return isOverridden; }
  void SetOverridden(bool o) { isOverridden = o; }

  // Whether the first parameter is Extends / the last is Assigns.
  bool Extends() const;
  bool Assigns() const;
  bool PassesFilter(MethodFilter filter) const;

  // Set on an ancestor's method when a subclass overrides it.
  bool isOverridden = false;
  SimpleVector<ParameterDeclaration*> parameters;
  SimpleVector<ConstantDeclaration*> constants;
  string baseName;
  DispatchMethod dispatchMethod = kDispatchNormal;
  // Method-table or event-table slot, a running number, or an address:
  // see DispatchMethod.
  int32_t dispatchID = 0;
  string sourceLibrary;
  bool isExternal = false;
};

// An event that a class handles, and the handler that does it.
class HandledEvent : public LockableDeclarationItem {
public:
  static HandledEvent* New(string eventName, string handlerName);

  string GetEventName() const { return eventName; }
  string GetHandlerName() const { return handlerName; }
  void SetHandlerName(string n) { handlerName = n; }

  string eventName;
  string handlerName;
};

class ClassDeclaration : public ScopedDeclaration, public FunctionDeclarationListOwner {
public:
  static ClassDeclaration* New() { return new ClassDeclaration; }
  ClassDeclaration();
  ~ClassDeclaration() override;

  string GetLinkName() const { return linkName; }
  void SetLinkName(string n) { linkName = n; }

  // Properties and events are indexed by name (events by base name) and
  // found in this class only: inherited ones are copied in by the miner.
  PropertyDeclaration* GetProperty(unsigned int i) const { return properties[i]; }
  unsigned int CountProperties() const { return (unsigned int)properties.size(); }
  void AddProperty(PropertyDeclaration* p);
  PropertyDeclaration* LookupProperty(string name) const;

  FunctionDeclaration* GetEvent(unsigned int i) const { return events[i]; }
  unsigned int CountEvents() const { return (unsigned int)events.size(); }
  void AddEvent(FunctionDeclaration* e);
  FunctionDeclaration* LookupEvent(string baseName) const;

  HandledEvent* GetHandledEvent(unsigned int i) const { return handledEvents[i]; }
  unsigned int CountHandledEvents() const { return (unsigned int)handledEvents.size(); }
  void AddHandledEvent(HandledEvent* h);
  // By event name, linear.
  HandledEvent* LookupHandledEvent(string eventName) const;

  string GetImplementedInterface(unsigned int i) const { return implementedInterfaces[i]; }
  unsigned int CountImplementedInterfaces() const { return (unsigned int)implementedInterfaces.size(); }
  void AddImplementedInterface(string name) { implementedInterfaces.push_back(name); }
  void InsertImplementedInterface(unsigned int at, string name) { implementedInterfaces.insert(name, at); }
  bool LookupImplementedInterface(string name) const;

  // Linear, and this class only: a class holds copies of what it inherits.
  ConstantDeclaration* GetConstant(unsigned int i) const { return constants[i]; }
  unsigned int CountConstants() const { return (unsigned int)constants.size(); }
  void AddConstant(ConstantDeclaration* c);
  ConstantDeclaration* LookupConstant(string name) const;

  ClassDeclaration* GetParent() const { return parent; }
  void SetParent(ClassDeclaration* p) { parent = p; }
  int32_t GetStorageSize() const { return storageSize; }
  void SetStorageSize(int32_t s) { storageSize = s; }
  unsigned int GetEventTableSlotCount() const { return eventTableSlotCount; }
  void SetEventTableSlotCount(unsigned int n) { eventTableSlotCount = n; }
  bool IsInterface() const { return isInterface; }
  void SetInterfaceFlag(bool f) { isInterface = f; }
  bool IsAbstract() const { return isAbstract; }

  // The class's own name, qualified for a class inside a module.
  string linkName;
  // Properties so far, ancestors' included; each property's `index`.
  int32_t propertySlotCount = 0;
  // Method-table slots in use, the parent's included.
  int32_t vtableSlotCount = 0;
  // Direct methods numbered so far.
  int32_t directSlotCount = 0;
  SimpleVector<PropertyDeclaration*> properties;
  SimpleVector<FunctionDeclaration*> events;
  SimpleVector<HandledEvent*> handledEvents;
  SimpleVector<string> implementedInterfaces;
  SimpleVector<ConstantDeclaration*> constants;
  ClassDeclaration* parent = nullptr;
  // Bytes of the instance's own fields, ancestors' included.
  int32_t storageSize = 0;
  uint32_t eventTableSlotCount = 0;
  bool isInterface = false;
  // No form of declaration sets it.
  bool isAbstract = false;
  StringMap<int> propertyIndex;
  StringMap<int> eventIndex;
};

class ModuleDeclaration : public Declaration, public FunctionDeclarationListOwner {
public:
  static ModuleDeclaration* New() { return new ModuleDeclaration; }
  ModuleDeclaration();
  ~ModuleDeclaration() override;

  // Own overloads first, then the enclosing modules', so that an inner
  // module's method is found before an outer one of the same base name.
  Ref<SimpleVector<FunctionDeclaration*> > LookupMethodsByBase(string baseName,
                                                               MethodFilter filter) const override;

  // This module's own, without the enclosing ones: what `Module.name` reaches.
  Ref<SimpleVector<FunctionDeclaration*> > LookupOwnMethodsByBase(string baseName, MethodFilter filter) const;
  PropertyDeclaration* LookupOwnProperty(string name) const;
  ConstantDeclaration* LookupOwnConstant(string name) const;

  // Each lookup tries this module and then the enclosing ones.
  PropertyDeclaration* GetProperty(unsigned int i) const { return properties[i]; }
  unsigned int CountProperties() const { return (unsigned int)properties.size(); }
  void AddProperty(PropertyDeclaration* p);
  PropertyDeclaration* LookupProperty(string name) const;

  ConstantDeclaration* GetConstant(unsigned int i) const { return constants[i]; }
  unsigned int CountConstants() const { return (unsigned int)constants.size(); }
  void AddConstant(ConstantDeclaration* c);
  ConstantDeclaration* LookupConstant(string name) const;

  ClassDeclaration* GetClass(unsigned int i) const { return classes[i]; }
  unsigned int CountClasses() const { return (unsigned int)classes.size(); }
  void AddClass(ClassDeclaration* c);
  ClassDeclaration* LookupClass(string name) const;

  ModuleDeclaration* GetModule(unsigned int i) const { return modules[i]; }
  unsigned int CountModules() const { return (unsigned int)modules.size(); }
  void AddModule(ModuleDeclaration* m);
  ModuleDeclaration* LookupModule(string name) const;

  ModuleDeclaration* GetParent() const { return parent; }
  void SetParent(ModuleDeclaration* p) { parent = p; }

  // Clears the unlocked links (class parents, module parents) of this
  // module and its sub-modules, before the module is let go.
  void Unlink();

  SimpleVector<PropertyDeclaration*> properties;
  SimpleVector<ConstantDeclaration*> constants;
  SimpleVector<ClassDeclaration*> classes;
  SimpleVector<ModuleDeclaration*> modules;
  ModuleDeclaration* parent = nullptr;
  StringMap<int> classIndex;
  StringMap<int> constantIndex;
  StringMap<int> propertyIndex;
  StringMap<int> moduleIndex;
};

// May the code being compiled touch a member of `owner` declared with
// `scope`? Reads the current compilation's class; outside any class only
// public members may be touched.
bool CurrentlyHasPermissionToAccess(ClassDeclaration* owner, ScopedDeclaration::Scope scope);
