#include "codebuild/Classes.h"

#include "codebuild/Arrays.h"
#include "codebuild/Assignments.h"
#include "codebuild/Calls.h"
#include "codebuild/Conversions.h"
#include "codebuild/Declarations.h"
#include "codebuild/Functions.h"
#include "codebuild/Placeholders.h"
#include "codebuild/Program.h"
#include "codebuild/Statements.h"
#include "frontend/Lexer.h"
#include "frontend/Miner.h"
#include "frontend/SrcContext.h"
#include "ir/Intrinsics.h"
#include "runtime/RuntimeObjectFoundation.h"
#include "semantic/DeclarationTable.h"
#include "semantic/NameMangler.h"
#include "semantic/SymbolTable.h"
#include "semantic/SymbolUtilities.h"

// A class exists at run time as a record that its retriever builds on the
// first call of a run and keeps in the class's table global. The names of
// both come from the class's link name, which carries its module, so two
// classes of one name in different modules never share a cache.

namespace {

TacAddr const* Lit(long value) { return CurrentTLP()->GetLiteral(value); }
TacAddr const* Lit(string const& text) { return CurrentTLP()->GetLiteral(text); }

string RetrieverName(ClassDeclaration* cls) { return QualifyName(cls->GetLinkName(), string("__Lookup")); }

// The function that yields the class's record: its retriever, or for a
// class of the library, the library's lookup function, which keeps the
// record itself (such a class has no table global).
string RecordFunction(ClassDeclaration* cls, bool& ownRetriever) {
  Ref<SimpleVector<FunctionDeclaration*>> lookups = cls->LookupMethodsByBase(string("__Lookup"), kFilterPlain);
  string name = lookups && lookups->size() ? (*lookups.Get())[0]->GetName() : RetrieverName(cls);
  ownRetriever = name == RetrieverName(cls);
  return name;
}

TacAddr const* ClassTableAddr(ClassDeclaration* cls) {
  return gContext->GetStaticSymbolAddr(IRDataType(kTypeClassRef), QualifyName(cls->GetLinkName(), string("__ctbl")));
}

// A function of the class's own making: a label, a fresh table of locals,
// its prolog. `Finish` closes it.
struct ClassFunction {
  Ref<SemBase> code;
  unsigned long table;

  ClassFunction(string const& name, SourceLocation const* where) {
    code = SemCode::New(IRDataType(), where);
    code->AddLine(tac_Label, Lit(name), nilTacAddr, nilTacAddr);
    table = NewSymTable(LocalStorage, string(""));
  }

  // A parameter of `type` fetched into a local that the function neither
  // locks nor releases: the record or the object it is handed.
  Ref<SemBase> Parameter(char const* name, IRDataType const& type) {
    Ref<SemBase> id = SemIdentifier::New(string(name));
    id->SetType(type);
    SymbolID symbol = AddSymbol(id);
    return SemValue::New(symbol.GetAddr(), nullptr);
  }

  void Open(Ref<SemBase> parameter) {
    code->AddLine(tac_Symbols, Lit((long)table), nilTacAddr, nilTacAddr);
    if (parameter) code->AddLine(tac_GetParam, nilTacAddr, nilTacAddr, parameter->GetAddr());
  }

  // Releases the temporaries (never the parameter, which is no temporary).
  Ref<SemBase> Finish(TacAddr const* retval) {
    Ref<SymbolTable> symbols = CurrentSymbolTableList()->GetTable(table);
    Ref<SemBase> tail = SemCode::New(IRDataType(), nullptr);
    if (symbols) {
      SymbolTableIterator it(symbols);
      while (it.Next())
        if (!it.Value().UserVisible()) FinalizeVariable(it.Value(), tail);
    }
    code->Append(tail);
    if (retval) code->AddLine(tac_PutRetval, retval, nilTacAddr, nilTacAddr);
    code->AddLine(tac_Return, nilTacAddr, nilTacAddr, nilTacAddr);
    PopSymTable();
    code->Temporaries()->deleteAll();
    return code;
  }
};

// Pokes the text into a slot that holds nothing yet and takes the reference
// the record keeps of it.
void PokeName(Ref<SemBase> const& code, string const& text, long offset, TacAddr const* base) {
  TacAddr const* name = Lit(text);
  code->AddLine(tac_PokeS, name, Lit(offset), base);
  code->AddLine(tac_Lock, name, nilTacAddr, nilTacAddr);
}

// The same over a slot that may hold a name copied from the parent's
// record, which holds a reference of its own: that one is let go of.
void ReplaceName(Ref<SemBase> const& code, string const& text, long offset, TacAddr const* base) {
  TacAddr const* name = Lit(text);
  Ref<SemBase> old = code->NewTemp(IRDataType(kTypeString), nullptr);
  code->AddLine(tac_PeekS, base, Lit(offset), old->GetAddr());
  code->AddLine(tac_SwapLocks, name, old->GetAddr(), nilTacAddr);
  code->AddLine(tac_PokeS, name, Lit(offset), base);
}

void PokeFunction(Ref<SemBase> const& code, string const& link, string const& library, long offset,
                  TacAddr const* base) {
  Ref<SemBase> t = code->NewTemp(IRDataType(kTypeReference), nullptr);
  code->AddLine(tac_FuncPtr, Lit(link), library.Length() ? Lit(library) : nilTacAddr, t->GetAddr());
  code->AddLine(tac_PokeI, t->GetAddr(), Lit(offset), base);
}

Ref<SemBase> PeekTable(Ref<SemBase> const& code, TacAddr const* record, long offset) {
  Ref<SemBase> table = code->NewTemp(IRDataType(kTypeReference), nullptr);
  code->AddLine(tac_PeekI, record, Lit(offset), table->GetAddr());
  return table;
}

// The code that leaves `cls`'s record in a temporary: the global if the
// record is built, else a call of the retriever, which builds it.
Ref<SemBase> RecordOf(ClassDeclaration* cls, SourceLocation const* where) {
  Ref<SemBase> code = SemCode::New(IRDataType(kTypeClassRef), where);
  TacAddr const* dest = code->GetAddr();
  bool ownRetriever = false;
  string function = RecordFunction(cls, ownRetriever);
  if (!ownRetriever) {
    code->AddLine(tac_Call, Lit(function), nilTacAddr, dest);
    return code;
  }
  TacAddr const* built = NewLabel();
  code->AddLine(tac_Store, ClassTableAddr(cls), nilTacAddr, dest);
  code->AddLine(tac_IfNEI, dest, gTacZero, built);
  code->AddLine(tac_Call, Lit(function), nilTacAddr, dest);
  code->AddLine(tac_Label, built, nilTacAddr, nilTacAddr);
  return code;
}

bool IsFunctionCode(Ref<SemBase> const& e) {
  TacBlock* block = e ? e->Code() : nullptr;
  return block && BlockIsFunction(block);
}

Ref<SemBase> AsList(Ref<SemBase> members) {
  if (members && !members->IsList()) return SemList::New(members);
  return members;
}

// The first of the chain of `cls`'s ancestors, bounded: a cycle of Inherits
// is cut where it is reported, but a class compiled before that point may
// still see it.
constexpr int kMaxAncestorWalk = 4096;

ClassDeclaration* FindInterfaceClass(Ref<SemBase> const& name, bool& known) {
  ClassDeclaration* found = name ? LookupClassByName(name->toString()) : nullptr;
  known = found != nullptr;
  return found;
}

// The event slot that a handler of `eventName` fills: the event as the
// nearest ancestor declares it.
FunctionDeclaration* InheritedEvent(ClassDeclaration* cls, string const& eventName) {
  int steps = 0;
  for (ClassDeclaration* c = cls->GetParent(); c && steps < kMaxAncestorWalk; c = c->GetParent(), ++steps)
    if (FunctionDeclaration* e = c->LookupEvent(eventName)) return e;
  return nullptr;
}

}  // namespace

Ref<SemBase> LookupClassRecord(string const& name, SourceLocation const* where) {
  ClassDeclaration* cls = LookupClassByName(name);
  if (!cls) {
    Error(UnknownName, where ? *where : SourceLocation(CurrentSourceLine()));
    return SemCode::New(IRDataType(), where);
  }
  return RecordOf(cls, where);
}

// The check stays even where NilObjectChecking is off: without it a Nil
// object or array is read through address 0 and the host goes down with the
// script. The pragma is accepted and remembered, and changes nothing here.
Ref<SemBase> CheckForNilObject(Ref<SemBase> value) {
  if (!value || !gContext || IsVariant(value->GetType())) return value;
  if (IsReportedFailure(value)) return value;
  IRDataType type = value->GetType();
  if (type.GetMainType() == kTypeReference) type = type.AsElement();
  if (type.GetMainType() != kTypeObject && type.GetMainType() != kTypeArray) return value;
  // A constant is Nil itself: the check stays, so that the call raises.
  Ref<SemBase> lines = SemCode::New(IRDataType(), &value->Location());
  Ref<SemBase> object = CompileRefAs(value, type, lines);
  TacAddr const* fine = NewLabel();
  lines->AddLine(tac_IfNEI, object->GetAddr(), gTacZero, fine);
  lines->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeNilObject), nilTacAddr, nilTacAddr);
  lines->AddLine(tac_Label, fine, nilTacAddr, nilTacAddr);
  Ref<SemBase> wrapped = SemCode::NewValueWrapper(object, &value->Location());
  wrapped->Append(lines);
  return wrapped;
}

Ref<SemBase> CreatePropertyStorageReference(Ref<SemBase> object, PropertyDeclaration* property) {
  Ref<SemBase> code = SemCode::New(property->GetType().AsReference(), &object->Location());
  Ref<SemBase> base = FlattenExpression(object, code);
  if (base->GetType().GetMainType() == kTypeReference) {
    Ref<SemBase> handle = code->NewTemp(IRDataType(kTypeReference), nullptr);
    code->AddLine(tac_PeekO, base->GetAddr(), nilTacAddr, handle->GetAddr());
    base = handle;
  }
  TacAddr const* offset = Lit((long)property->GetOffset() + kRuntimeObjectHeaderSize);
  code->AddLine(tac_AddI, base->GetAddr(), offset, code->GetAddr());
  return code;
}

FunctionDeclaration* FindInterfaceMethodMatch(FunctionDeclaration* interfaceMethod, ClassDeclaration* cls) {
  if (!interfaceMethod || !cls) return nullptr;
  Ref<SimpleVector<FunctionDeclaration*>> candidates =
      cls->LookupMethodsByBase(interfaceMethod->GetBaseName(), kFilterPlain);
  if (!candidates) return nullptr;
  for (unsigned long i = 0; i < candidates->size(); ++i) {
    FunctionDeclaration* c = (*candidates.Get())[i];
    if (c->GetDispatchMethod() != FunctionDeclaration::kDispatchHardCoded && SignaturesMatchExactly(interfaceMethod, c))
      return c;
  }
  return nullptr;
}

// ---------------------------------------------------------------------------
// The functions of a class

Ref<SemBase> CreateInterfaceImplementation(Ref<SemBase> interfaceName, bool inherited) {
  ClassDeclaration* cls = gContext ? gContext->currentClass : nullptr;
  bool known = false;
  ClassDeclaration* iface = FindInterfaceClass(interfaceName, known);
  if (!cls || !iface) return SemCode::New(IRDataType(), nullptr);
  string faceName = AddInterfaceToClassName(cls->GetLinkName(), iface->GetName());
  ClassFunction f(QualifyName(faceName, string("__Lookup")), &interfaceName->Location());
  Ref<SemBase> entry = f.Parameter(AddInterfaceToClassName(cls->GetName(), iface->GetName()).CString(),
                                   IRDataType(kTypeReference));
  f.Open(entry);
  Ref<SemBase> code = f.code;
  Ref<SemBase> record = FlattenExpression(RecordOf(iface, nullptr), code);
  code->AddLine(tac_PokeI, record->GetAddr(), Lit((long)offsetof(RuntimeInterfaceEntry, mInterface)),
                entry->GetAddr());
  TacAddr const* slots = Lit((long)iface->vtableSlotCount);
  code->AddLine(tac_PokeI, slots, Lit((long)offsetof(RuntimeInterfaceEntry, mUnused)), entry->GetAddr());
  Ref<SemBase> table = code->NewTemp(IRDataType(kTypeReference), nullptr);
  code->AddLine(tac_PutParam, slots, nilTacAddr, nilTacAddr);
  code->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeNewVtable), nilTacAddr, table->GetAddr());
  // A table that could not be made has been raised as such, and this code,
  // which has no handler of its own, runs on: nothing may go into address 0.
  TacAddr const* end = NewLabel();
  code->AddLine(tac_IfEQI, table->GetAddr(), gTacZero, end);
  code->AddLine(tac_PokeI, table->GetAddr(), Lit((long)offsetof(RuntimeInterfaceEntry, mVtable)), entry->GetAddr());
  for (unsigned int i = 0; i < iface->CountMethods(); ++i) {
    FunctionDeclaration* m = iface->GetMethod(i);
    if (m->GetDispatchMethod() != FunctionDeclaration::kDispatchVtable) continue;
    FunctionDeclaration* match = FindInterfaceMethodMatch(m, cls);
    // A parent's private method that implements the interface is no
    // method of the class, but it is still the parent's implementation.
    int steps = 0;
    for (ClassDeclaration* c = cls->GetParent(); inherited && !match && c && steps < kMaxAncestorWalk;
         c = c->GetParent(), ++steps)
      match = FindInterfaceMethodMatch(m, c);
    if (!match) {
      // An inherited interface whose method the class lacks keeps the slot
      // at zero: the run-time's table comes cleared.
      if (!inherited) Error(InterfaceMethodMissing, interfaceName->Location());
      continue;
    }
    long slot = (long)m->GetDispatchID() * (long)sizeof(RuntimeMethodEntry);
    PokeFunction(code, match->GetName(), match->GetSourceLibrary(), slot, table->GetAddr());
    PokeName(code, MangledMethodName(match), slot + (long)offsetof(RuntimeMethodEntry, mName), table->GetAddr());
  }
  code->AddLine(tac_Label, end, nilTacAddr, nilTacAddr);
  return f.Finish(nullptr);
}

Ref<SemBase> CreateClassRetriever(Ref<SemBase> name, ClassDeclaration* cls, string const& initializer,
                                  string const& destructor, string const& finalizer) {
  TacAddr const* ctbl = ClassTableAddr(cls);
  ClassFunction f(RetrieverName(cls), name ? &name->Location() : nullptr);
  f.Open(Ref<SemBase>());
  Ref<SemBase> code = f.code;
  TacAddr const* end = NewLabel();
  code->AddLine(tac_IfNEI, ctbl, gTacZero, end);
  ClassDeclaration* parent = cls->IsInterface() ? nullptr : cls->GetParent();
  if (parent) {
    Ref<SemBase> record = FlattenExpression(RecordOf(parent, nullptr), code);
    code->AddLine(tac_PutParam, record->GetAddr(), nilTacAddr, nilTacAddr);
  } else {
    code->AddLine(tac_PutParam, gTacZero, nilTacAddr, nilTacAddr);
  }
  code->AddLine(tac_PutParam, Lit((long)cls->vtableSlotCount), nilTacAddr, nilTacAddr);
  code->AddLine(tac_PutParam, Lit((long)cls->CountImplementedInterfaces()), nilTacAddr, nilTacAddr);
  code->AddLine(tac_PutParam, Lit((long)cls->GetEventTableSlotCount()), nilTacAddr, nilTacAddr);
  code->AddLine(tac_PutParam, Lit((long)cls->directSlotCount), nilTacAddr, nilTacAddr);
  code->AddLine(tac_PutParam, Lit((long)cls->propertySlotCount), nilTacAddr, nilTacAddr);
  code->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeNewClass), nilTacAddr, ctbl);
  // A record that could not be made has been raised as such, and this
  // code, which has no handler of its own, runs on: nothing may be poked
  // into address 0.
  code->AddLine(tac_IfEQI, ctbl, gTacZero, end);
  PokeName(code, cls->GetName(), kClassNameOffset, ctbl);
  code->AddLine(tac_PokeI, cls->IsInterface() ? gTacOne : gTacZero, Lit((long)kClassIsInterfaceOffset), ctbl);
  if (!cls->IsInterface()) {
    code->AddLine(tac_PokeI, Lit((long)cls->GetStorageSize() + kRuntimeObjectHeaderSize),
                  Lit((long)kClassInstanceSizeOffset), ctbl);
    if (initializer.Length()) PokeFunction(code, initializer, string(), kClassInitializerOffset, ctbl);
    if (destructor.Length()) PokeFunction(code, destructor, string(), kClassDestructorOffset, ctbl);
    if (finalizer.Length()) PokeFunction(code, finalizer, string(), kClassFinalizerOffset, ctbl);

    Ref<SemBase> methods = PeekTable(code, ctbl, kClassMethodsOffset);
    for (unsigned int i = 0; i < cls->CountMethods(); ++i) {
      FunctionDeclaration* m = cls->GetMethod(i);
      if (m->GetDispatchMethod() != FunctionDeclaration::kDispatchVtable) continue;
      long slot = (long)m->GetDispatchID() * (long)sizeof(RuntimeMethodEntry);
      PokeFunction(code, m->GetName(), m->GetSourceLibrary(), slot, methods->GetAddr());
      ReplaceName(code, MangledMethodName(m), slot + (long)offsetof(RuntimeMethodEntry, mName), methods->GetAddr());
    }
    if (cls->CountEvents() || cls->CountHandledEvents()) {
      Ref<SemBase> events = PeekTable(code, ctbl, kClassEventsOffset);
      for (unsigned int i = 0; i < cls->CountEvents(); ++i) {
        FunctionDeclaration* e = cls->GetEvent(i);
        long slot = (long)e->GetDispatchID() * (long)sizeof(RuntimeMethodEntry);
        ReplaceName(code, e->GetBaseName(), slot + (long)offsetof(RuntimeMethodEntry, mName), events->GetAddr());
      }
      for (unsigned int i = 0; i < cls->CountHandledEvents(); ++i) {
        HandledEvent* h = cls->GetHandledEvent(i);
        FunctionDeclaration* e = InheritedEvent(cls, h->GetEventName());
        if (!e) continue;
        long slot = (long)e->GetDispatchID() * (long)sizeof(RuntimeMethodEntry);
        PokeFunction(code, h->GetHandlerName(), string(), slot, events->GetAddr());
      }
    }
    int32_t first = parent ? parent->propertySlotCount : 0;
    bool anyProperty = false;
    for (unsigned int i = 0; i < cls->CountProperties(); ++i)
      anyProperty = anyProperty || cls->GetProperty(i)->GetIndex() >= first;
    if (anyProperty) {
      Ref<SemBase> properties = PeekTable(code, ctbl, kClassPropertiesOffset);
      for (unsigned int i = 0; i < cls->CountProperties(); ++i) {
        PropertyDeclaration* p = cls->GetProperty(i);
        if (p->GetIndex() < first || p->GetIndex() == -1) continue;
        long entry = (long)p->GetIndex() * (long)sizeof(RuntimePropertyEntry);
        code->AddLine(tac_PokeS, Lit(MangledPropertyName(p)), Lit(entry), properties->GetAddr());
        code->AddLine(tac_PokeI, Lit((long)p->GetOffset() + kRuntimeObjectHeaderSize),
                      Lit(entry + (long)offsetof(RuntimePropertyEntry, mFieldOffset)), properties->GetAddr());
        code->AddLine(tac_PokeI, gTacOne, Lit(entry + (long)offsetof(RuntimePropertyEntry, mOne1)),
                      properties->GetAddr());
        code->AddLine(tac_PokeI, gTacOne, Lit(entry + (long)offsetof(RuntimePropertyEntry, mOne2)),
                      properties->GetAddr());
      }
    }
    if (cls->CountImplementedInterfaces()) {
      Ref<SemBase> p = code->NewTemp(IRDataType(kTypeReference), nullptr);
      code->AddLine(tac_AddI, ctbl, Lit((long)kClassInterfacesOffset), p->GetAddr());
      for (unsigned int i = 0; i < cls->CountImplementedInterfaces(); ++i) {
        ClassDeclaration* iface = LookupClassByName(cls->GetImplementedInterface(i));
        if (!iface) continue;
        string face = AddInterfaceToClassName(cls->GetLinkName(), iface->GetName());
        code->AddLine(tac_PutParam, p->GetAddr(), nilTacAddr, nilTacAddr);
        code->AddLine(tac_Call, Lit(QualifyName(face, string("__Lookup"))), nilTacAddr, nilTacAddr);
        code->AddLine(tac_AddI, p->GetAddr(), Lit((long)sizeof(RuntimeInterfaceEntry)), p->GetAddr());
      }
    }
  }
  code->AddLine(tac_Label, end, nilTacAddr, nilTacAddr);
  return f.Finish(ctbl);
}

// The initial values of the fields, in source order; the empty name if
// there are none.
string CreateInstanceInitializer(ClassDeclaration* cls, long tableIndex, Ref<SemBase> members, Ref<SemBase> result) {
  Ref<SemBase> body = SemCode::New(IRDataType(), nullptr);
  bool any = false;
  for (Ref<SemBase> e = members ? members->GetContents() : Ref<SemBase>(); e; e = e->GetNext()) {
    TacBlock* block = e->Code();
    if (!block || !block->first || IsFunctionCode(e)) continue;
    body->Append(e);
    any = true;
  }
  if (!any) return string();
  string name = QualifyName(cls->GetLinkName(), string("__Init"));
  Ref<SemBase> code = SemCode::New(IRDataType(), nullptr);
  code->AddLine(tac_Label, Lit(name), nilTacAddr, nilTacAddr);
  code->AddLine(tac_Symbols, Lit(tableIndex), nilTacAddr, nilTacAddr);
  Ref<SemBase> self = code->NewTemp(IRDataType(kTypeObject), nullptr);
  code->AddLine(tac_GetParam, nilTacAddr, nilTacAddr, self->GetAddr());
  code->AddLine(tac_Baseref, self->GetAddr(), Lit((long)kRuntimeObjectHeaderSize), nilTacAddr);
  code->Temporaries()->deleteAll();
  code->Append(FilterTemporaryVariables(body));
  code->AddLine(tac_Return, nilTacAddr, nilTacAddr, nilTacAddr);
  code->Temporaries()->deleteAll();
  result->Append(code);
  return name;
}

// Releases the counted fields the class itself declares; each class of the
// chain has its own. The empty name when there are none.
string CreateInstanceFinalizer(ClassDeclaration* cls, Ref<SemBase> result) {
  Ref<SemBase> releases = SemCode::New(IRDataType(), nullptr);
  FinalizeClassProperties(cls, releases);
  TacBlock* block = releases->Code();
  if (!block || !block->first) return string();
  string name = QualifyName(cls->GetLinkName(), string("__Exit"));
  ClassFunction f(name, nullptr);
  Ref<SemBase> self = f.Parameter("self", IRDataType(cls->GetName()));
  f.Open(self);
  f.code->AddLine(tac_Baseref, self->GetAddr(), Lit((long)kRuntimeObjectHeaderSize), nilTacAddr);
  f.code->Append(releases);
  result->Append(f.Finish(nullptr));
  return name;
}

// The destructor the run-time calls for this class: `~Name` or
// `Destructor`, callable with the object alone. One that the class merely
// inherits runs through its own class's record.
string FindDestructor(ClassDeclaration* cls) {
  Ref<SimpleVector<FunctionDeclaration*>> candidates =
      cls->LookupMethodsByBase(MakeDestructorBaseName(cls->GetName()), kFilterPlain);
  Ref<SimpleVector<FunctionDeclaration*>> plain = cls->LookupMethodsByBase(string("Destructor"), kFilterPlain);
  if (!candidates) candidates = plain;
  else if (plain)
    for (unsigned long i = 0; i < plain->size(); ++i) candidates->push_back((*plain.Get())[i]);
  if (!candidates || candidates->size() == 0) return string();
  // Only the type of the argument counts for the choice: no temporary.
  Ref<SemBase> self = SemIdentifier::New(string("self"));
  self->SetType(IRDataType(cls->GetName()));
  CompileErrorCode err = kNoCompileError;
  FunctionDeclaration* chosen = SelectAppropriateVariant(candidates, self, kResultStatement, &err);
  if (!chosen) return string();
  ClassDeclaration* parent = cls->GetParent();
  if (parent && chosen->GetDispatchMethod() == FunctionDeclaration::kDispatchVtable) {
    for (unsigned int i = 0; i < parent->CountMethods(); ++i)
      if (parent->GetMethod(i)->GetName() == chosen->GetName()) return string();
  }
  return chosen->GetName();
}

// ---------------------------------------------------------------------------
// The grammar's routines

Ref<SemBase> OpenInterfaceScope() {
  unsigned long index = NewSymTable(ObjectStorage, string(""));
  return SemValue::New(CurrentTLP()->GetLiteral((long)index), nullptr);
}

Ref<SemBase> EndInterfaceMethod() {
  PopSymTable();
  return Ref<SemBase>();
}

Ref<SemBase> EndEventDeclaration(Ref<SemBase> name, Ref<SemBase> parameters, Ref<SemBase> type) {
  Ref<SemBase> event = CompileEvent(name, parameters, type, Ref<SemBase>());
  PopSymTable();
  return event;
}

Ref<SemBase> CompileClass(Ref<SemBase> name) {
  TraceRoutine("CompileClass", Ref<SemBase>(), {name});
  string text = name ? name->toString() : string();
  unsigned long index = NewSymTable(LocalStorage, QualifyName(text, string("__Init")));
  Ref<SemBase> table = SemValue::New(CurrentTLP()->GetLiteral((long)index), nullptr);
  if (!gContext) return table;
  gContext->inClass = true;
  ModuleDeclaration* module = gContext->CurrentModule();
  ClassDeclaration* cls = module ? module->LookupClass(text) : nullptr;
  gContext->currentClass = cls;
  if (cls && cls->GetParent()) {
    // A loop of Inherits is reported at the first of its classes to be
    // compiled, and cut there, so that every later walk up the chain ends.
    StringMap<int> visited;
    int steps = 0;
    for (ClassDeclaration* c = cls; c && steps < kMaxAncestorWalk; c = c->GetParent(), ++steps) {
      if (visited.HasEntry(c->GetName())) {
        Error(CircularInheritance, name->Location());
        cls->SetParent(nullptr);
        break;
      }
      visited.AddEntry(c->GetName(), 1);
    }
  }
  return table;
}

Ref<SemBase> CompileInheritance(Ref<SemBase> parentName, Ref<SemBase> result) {
  TraceRoutine("CompileInheritance", result, {parentName});
  if (!parentName || !gContext) return result;
  string written = parentName->toString();
  ClassDeclaration* cls = gContext->currentClass;
  if (cls && !(cls->GetType().GetClass() == written)) {
    Error(InheritsMismatch, parentName->Location());
    return result;
  }
  ClassDeclaration* parent = LookupClassByName(written);
  if (!parent) Error(UnknownName, parentName->Location());
  else if (parent->IsInterface()) Error(InheritsInterface, parentName->Location());
  return result;
}

Ref<SemBase> CompileImplements(Ref<SemBase> interfaceName) {
  TraceRoutine("CompileImplements", Ref<SemBase>(), {interfaceName});
  Ref<SemBase> none = SemCode::New(IRDataType(), nullptr);
  if (!interfaceName || !gContext) return none;
  bool known = false;
  ClassDeclaration* iface = FindInterfaceClass(interfaceName, known);
  if (!iface) {
    Error(UnknownName, interfaceName->Location());
    return none;
  }
  if (!iface->IsInterface()) {
    Error(NotAnInterface, interfaceName->Location());
    return none;
  }
  return CreateInterfaceImplementation(interfaceName, false);
}

Ref<SemBase> CompileEndClass(Ref<SemBase> name, Ref<SemBase> tableValue, Ref<SemBase> members) {
  TraceRoutine("CompileEndClass", Ref<SemBase>(), {name, tableValue, members});
  Ref<SemBase> result = SemCode::New(IRDataType(), nullptr);
  members = AsList(members);
  ClassDeclaration* cls = gContext ? gContext->currentClass : nullptr;
  long index = tableValue ? tableValue->GetValue().sint32 : 0;
  if (!cls) {
    PopSymTable();
    if (gContext) gContext->inClass = false;
    return result;
  }
  string initializer = CreateInstanceInitializer(cls, index, members, result);
  PopSymTable();
  string finalizer = CreateInstanceFinalizer(cls, result);
  string destructor = FindDestructor(cls);
  if (ClassDeclaration* parent = cls->GetParent()) {
    for (unsigned int i = 0; i < parent->CountImplementedInterfaces(); ++i) {
      Ref<SemBase> face = SemIdentifier::New(parent->GetImplementedInterface(i), name->Location());
      result->Append(CreateInterfaceImplementation(face, true));
    }
  }
  result->Append(CreateClassRetriever(name, cls, initializer, destructor, finalizer));
  for (Ref<SemBase> e = members ? members->GetContents() : Ref<SemBase>(); e; e = e->GetNext())
    if (IsFunctionCode(e)) result->Append(e);
  gContext->inClass = false;
  gContext->currentClass = nullptr;
  return result;
}

Ref<SemBase> CompileInterface(Ref<SemBase> name, Ref<SemBase> code) {
  TraceRoutine("CompileInterface", Ref<SemBase>(), {name, code});
  if (!code) code = SemCode::New(IRDataType(), nullptr);
  ClassDeclaration* iface = name && gContext ? LookupClassByName(name->toString()) : nullptr;
  if (iface) code->Append(CreateClassRetriever(name, iface, string(), string(), string()));
  PopSymTable();
  return code;
}

// The miner has laid out every property; what is left is the array of a
// property declared with bounds, which is made where the property's
// storage starts: for a field, by the class's initializer, once per object;
// for a module's property, at the start of the program.
Ref<SemBase> CompileProperty(Ref<SemBase> name, Ref<SemBase> dimensions, Ref<SemBase> type) {
  Ref<SemBase> result = SemCode::New(IRDataType(), nullptr);
  if (name && type) {
    IRDataType element = type->GetType();
    SimpleVector<Ref<SemBase>> bounds = ArgumentVector(dimensions);
    IRDataType declared = bounds.size() ? element.AsArray((int)bounds.size()) : element;
    if (!RefusePendingType(declared, name->Location()) && bounds.size()) {
      Ref<SemBase> array = AllocateNewArray(bounds, element);
      result->Append(CompileLookup(name, Ref<SemBase>(), array, kResultStatement, UnknownName, false));
      result = FilterTemporaryVariables(result);
    }
  }
  return TraceRoutine("CompileProperty", result, {name, dimensions, type});
}

Ref<SemBase> CompileEvent(Ref<SemBase> name, Ref<SemBase> parameters, Ref<SemBase> type, Ref<SemBase> result) {
  TraceRoutine("CompileEvent", result, {name, parameters, type});
  return result;
}
