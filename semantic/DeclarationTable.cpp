#include "semantic/DeclarationTable.h"

#include "foundation/KvAssert.h"
#include "semantic/NameScope.h"

namespace {

template <class T>
void UnlockAll(SimpleVector<T*>& items) {
  for (unsigned long i = 0; i < items.size(); ++i) items[i]->Unlock();
  items.deleteAll();
}

// Locks `item`, enters it under `key` with its position and pushes it.
template <class T>
void AddIndexed(SimpleVector<T*>& items, StringMap<int>& index, string const& key, T* item) {
  item->Lock();
  index.AddEntry(key, (int)items.size());
  items.push_back(item);
}

template <class T>
T* LookupIndexed(SimpleVector<T*> const& items, StringMap<int> const& index, string const& key) {
  int at;
  if (!index.GetEntry(key, at)) return nullptr;
  return items[(unsigned long)at];
}

template <class T>
T* LookupLinear(SimpleVector<T*> const& items, string const& name) {
  for (unsigned long i = 0; i < items.size(); ++i) {
    if (items[i]->GetName() == name) return items[i];
  }
  return nullptr;
}

}  // namespace

void LockableDeclarationItem::Unlock() {
  KV_ASSERT(lockCount > 0);
  if (--lockCount == 0) delete this;
}

// ---------------------------------------------------------------------------
// Method lists

FunctionDeclarationListOwner::~FunctionDeclarationListOwner() {
  UnlockAll(methods);
  for (unsigned long i = 0; i < overloads.size(); ++i) delete overloads[i];
  delete byBaseName;
}

void FunctionDeclarationListOwner::AddMethod(FunctionDeclaration* method) {
  method->Lock();
  int position = (int)methods.size();
  methods.push_back(method);
  if (!byBaseName) byBaseName = new StringMap<unsigned int>;
  unsigned int list;
  if (byBaseName->GetEntry(method->GetBaseName(), list)) {
    overloads[list]->push_back(position);
    return;
  }
  SimpleVector<int>* fresh = new SimpleVector<int>;
  fresh->push_back(position);
  byBaseName->AddEntry(method->GetBaseName(), (unsigned int)overloads.size());
  overloads.push_back(fresh);
}

FunctionDeclaration* FunctionDeclarationListOwner::LookupMethod(string name) const {
  return LookupLinear(methods, name);
}

bool FunctionDeclarationListOwner::CollectOwnOverloads(
    string const& baseName, MethodFilter filter,
    Ref<SimpleVector<FunctionDeclaration*> >& into) const {
  unsigned int list;
  if (!byBaseName || !byBaseName->GetEntry(baseName, list)) return false;
  SimpleVector<int> const& positions = *overloads[list];
  if (positions.size() == 0) return false;
  if (!into) into.BindNewObject(new SimpleVector<FunctionDeclaration*>);
  for (unsigned long i = 0; i < positions.size(); ++i) {
    FunctionDeclaration* method = methods[(unsigned long)positions[i]];
    if (method->PassesFilter(filter)) into->push_back(method);
  }
  return true;
}

Ref<SimpleVector<FunctionDeclaration*> > FunctionDeclarationListOwner::LookupMethodsByBase(
    string baseName, MethodFilter filter) const {
  Ref<SimpleVector<FunctionDeclaration*> > result;
  CollectOwnOverloads(baseName, filter, result);
  return result;
}

// ---------------------------------------------------------------------------
// Functions

FunctionDeclaration::~FunctionDeclaration() {
  UnlockAll(parameters);
  UnlockAll(constants);
}

void FunctionDeclaration::AddParameter(ParameterDeclaration* p) {
  p->Lock();
  parameters.push_back(p);
}

void FunctionDeclaration::InsertParameter(unsigned int at, ParameterDeclaration* p) {
  p->Lock();
  parameters.insert(p, at);
}

void FunctionDeclaration::AddConstant(ConstantDeclaration* c) {
  c->Lock();
  constants.push_back(c);
}

ConstantDeclaration* FunctionDeclaration::LookupConstant(string name) const {
  return LookupLinear(constants, name);
}

bool FunctionDeclaration::Extends() const {
  return parameters.size() != 0 &&
         parameters[0]->designator == ParameterDeclaration::kDesignatorExtends;
}

bool FunctionDeclaration::Assigns() const {
  return parameters.size() != 0 &&
         parameters[parameters.size() - 1]->designator == ParameterDeclaration::kDesignatorAssigns;
}

bool FunctionDeclaration::PassesFilter(MethodFilter filter) const {
  bool extends = Extends();
  bool assigns = Assigns();
  switch (filter) {
    case kFilterAll: return true;
    case kFilterPlain: return !extends && !assigns;
    case kFilterExtends: return extends && !assigns;
    case kFilterAssigns: return assigns && !extends;
    case kFilterExtendsAssigns: return extends && assigns;
  }
  return false;
}

HandledEvent* HandledEvent::New(string eventName, string handlerName) {
  HandledEvent* h = new HandledEvent;
  h->eventName = eventName;
  h->handlerName = handlerName;
  return h;
}

// ---------------------------------------------------------------------------
// Classes

ClassDeclaration::ClassDeclaration() = default;

ClassDeclaration::~ClassDeclaration() {
  UnlockAll(properties);
  UnlockAll(events);
  UnlockAll(handledEvents);
  UnlockAll(constants);
}

void ClassDeclaration::AddProperty(PropertyDeclaration* p) {
  AddIndexed(properties, propertyIndex, p->GetName(), p);
}

PropertyDeclaration* ClassDeclaration::LookupProperty(string name) const {
  return LookupIndexed(properties, propertyIndex, name);
}

void ClassDeclaration::AddEvent(FunctionDeclaration* e) {
  AddIndexed(events, eventIndex, e->GetBaseName(), e);
}

FunctionDeclaration* ClassDeclaration::LookupEvent(string baseName) const {
  return LookupIndexed(events, eventIndex, baseName);
}

void ClassDeclaration::AddHandledEvent(HandledEvent* h) {
  h->Lock();
  handledEvents.push_back(h);
}

HandledEvent* ClassDeclaration::LookupHandledEvent(string eventName) const {
  for (unsigned long i = 0; i < handledEvents.size(); ++i) {
    if (handledEvents[i]->eventName == eventName) return handledEvents[i];
  }
  return nullptr;
}

bool ClassDeclaration::LookupImplementedInterface(string name) const {
  for (unsigned long i = 0; i < implementedInterfaces.size(); ++i) {
    if (implementedInterfaces[i] == name) return true;
  }
  return false;
}

void ClassDeclaration::AddConstant(ConstantDeclaration* c) {
  c->Lock();
  constants.push_back(c);
}

ConstantDeclaration* ClassDeclaration::LookupConstant(string name) const {
  return LookupLinear(constants, name);
}

// ---------------------------------------------------------------------------
// Modules

ModuleDeclaration::ModuleDeclaration() = default;

ModuleDeclaration::~ModuleDeclaration() {
  UnlockAll(properties);
  UnlockAll(constants);
  UnlockAll(classes);
  UnlockAll(modules);
}

Ref<SimpleVector<FunctionDeclaration*> > ModuleDeclaration::LookupMethodsByBase(
    string baseName, MethodFilter filter) const {
  Ref<SimpleVector<FunctionDeclaration*> > result = LookupOwnMethodsByBase(baseName, filter);
  if (!parent) return result;
  Ref<SimpleVector<FunctionDeclaration*> > outer = parent->LookupMethodsByBase(baseName, filter);
  if (!outer) return result;
  if (!result) return outer;
  for (unsigned long i = 0; i < outer->size(); ++i) result->push_back((*outer.Get())[i]);
  return result;
}

void ModuleDeclaration::AddProperty(PropertyDeclaration* p) {
  AddIndexed(properties, propertyIndex, p->GetName(), p);
}

Ref<SimpleVector<FunctionDeclaration*> > ModuleDeclaration::LookupOwnMethodsByBase(string baseName,
                                                                                   MethodFilter filter) const {
  Ref<SimpleVector<FunctionDeclaration*> > result;
  CollectOwnOverloads(baseName, filter, result);
  return result;
}

PropertyDeclaration* ModuleDeclaration::LookupOwnProperty(string name) const {
  return LookupIndexed(properties, propertyIndex, name);
}

PropertyDeclaration* ModuleDeclaration::LookupProperty(string name) const {
  for (ModuleDeclaration const* m = this; m; m = m->parent) {
    if (PropertyDeclaration* p = m->LookupOwnProperty(name)) return p;
  }
  return nullptr;
}

void ModuleDeclaration::AddConstant(ConstantDeclaration* c) {
  AddIndexed(constants, constantIndex, c->GetName(), c);
}

ConstantDeclaration* ModuleDeclaration::LookupOwnConstant(string name) const {
  return LookupIndexed(constants, constantIndex, name);
}

ConstantDeclaration* ModuleDeclaration::LookupConstant(string name) const {
  for (ModuleDeclaration const* m = this; m; m = m->parent) {
    if (ConstantDeclaration* c = m->LookupOwnConstant(name)) return c;
  }
  return nullptr;
}

void ModuleDeclaration::AddClass(ClassDeclaration* c) {
  AddIndexed(classes, classIndex, c->GetName(), c);
}

ClassDeclaration* ModuleDeclaration::LookupClass(string name) const {
  for (ModuleDeclaration const* m = this; m; m = m->parent) {
    if (ClassDeclaration* c = LookupIndexed(m->classes, m->classIndex, name)) return c;
  }
  return nullptr;
}

void ModuleDeclaration::AddModule(ModuleDeclaration* m) {
  m->Lock();
  // Of two modules of one name, lookups find the first.
  if (!moduleIndex.HasEntry(m->GetName())) moduleIndex.AddEntry(m->GetName(), (int)modules.size());
  modules.push_back(m);
}

ModuleDeclaration* ModuleDeclaration::LookupModule(string name) const {
  for (ModuleDeclaration const* m = this; m; m = m->parent) {
    if (ModuleDeclaration* found = LookupIndexed(m->modules, m->moduleIndex, name)) return found;
  }
  return nullptr;
}

void ModuleDeclaration::Unlink() {
  for (unsigned long i = 0; i < classes.size(); ++i) classes[i]->SetParent(nullptr);
  for (unsigned long i = 0; i < modules.size(); ++i) modules[i]->Unlink();
  parent = nullptr;
}

// ---------------------------------------------------------------------------
// Access

bool CurrentlyHasPermissionToAccess(ClassDeclaration* owner, ScopedDeclaration::Scope scope) {
  if (scope == ScopedDeclaration::kScopePublic) return true;
  if (!gNameScope || !gNameScope->inClass || !gNameScope->currentClass || !owner) return false;
  ClassDeclaration* current = gNameScope->currentClass;
  if (current->GetName() == owner->GetName()) return true;
  if (scope == ScopedDeclaration::kScopePrivate) return false;
  // A chain that loops back (circular Inherits, reported elsewhere) must
  // not hang us: stop at the current class, and catch a loop that doesn't
  // pass through it with a pointer that moves at half speed.
  ClassDeclaration* slow = current;
  bool moveSlow = false;
  for (ClassDeclaration* c = current->GetParent(); c && c != current; c = c->GetParent()) {
    if (c->GetName() == owner->GetName()) return true;
    if (moveSlow) slow = slow->GetParent();
    moveSlow = !moveSlow;
    if (c == slow) return false;
  }
  return false;
}
