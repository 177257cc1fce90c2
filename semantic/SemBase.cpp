#include "semantic/SemBase.h"

#include <cstdint>

#include "foundation/KvAssert.h"
#include "foundation/Utility.h"
#include "diag/CompileError.h"
#include "semantic/SymbolTable.h"

Ref<SemBase> kNullSemBase;

static Ref<SemBase> Bound(SemBase* object) {
  Ref<SemBase> r;
  r.BindNewObject(object);
  return r;
}

// SemBase: the defaults, which every wrong-kind call falls back to.

SemBase::SemBase() : tag(kSemBaseTag) {
  location.startLine = CurrentSourceLine();
  location.endLine = location.startLine;
}

Ref<SemBase> SemBase::New() { return Bound(new SemBase()); }

SemBase::~SemBase() = default;

string SemBase::toString() const { return string("<null>"); }
bool SemBase::IsList() const { return false; }
bool SemBase::IsSymbol() const { return false; }
bool SemBase::IsIdentifier() const { return false; }
bool SemBase::IsConstant() const { return false; }
void SemBase::Append(Ref<SemBase>) { Error("Append called on invalid SemBase type"); }
Ref<SemBase> SemBase::GetContents() const { return Ref<SemBase>(); }
Ref<SemBase> SemBase::GetNext() const { return next; }

Ref<SemBase> SemBase::Clone() const {
  Error("Clone called on invalid SemBase type");
  return Ref<SemBase>();
}

TacBlock* SemBase::Code() { return nullptr; }

void SemBase::AddLine(TacOpcode, TacAddr const*, TacAddr const*, TacAddr const*) {
  Error("AddLine called on invalid SemBase type");
}

Ref<SemBase> SemBase::NewTemp(IRDataType const&, SourceLocation const*) {
  Error("NewTemp called on invalid SemBase type");
  return Ref<SemBase>();
}

SimpleVector<SymbolID>* SemBase::Temporaries() {
  Error("Temporaries called on invalid SemBase type");
  return nullptr;
}

void SemBase::SetType(IRDataType) { Error("SetType called on invalid SemBase type"); }
IRDataType SemBase::GetType() const { return IRDataType(); }
IRValue SemBase::GetValue() const { return kIRZeroValue; }
TacAddr const* SemBase::GetAddr() const { return nilTacAddr; }

// A wrong-kind call is a compiler fault that the user can do nothing about;
// the defaults it yields keep the compile going.
void SemBase::Error(char const*) const {}

// SemIdentifier

SemIdentifier::SemIdentifier(string n) : name(n) { tag = kSemIdentifierTag; }

Ref<SemBase> SemIdentifier::New(string name) { return Bound(new SemIdentifier(name)); }

Ref<SemBase> SemIdentifier::New(string name, SourceLocation const& loc) {
  SemIdentifier* identifier = new SemIdentifier(name);
  identifier->location = loc;
  return Bound(identifier);
}

string SemIdentifier::toString() const { return name; }

Ref<SemBase> SemIdentifier::Clone() const { return New(name, location); }

// SemList

SemList::SemList(Ref<SemBase> first) : head(first), tail(first) { tag = kSemListTag; }

Ref<SemBase> SemList::New(Ref<SemBase> first) { return Bound(new SemList(first)); }

SemList::~SemList() = default;

string SemList::toString() const {
  string text("[");
  for (Ref<SemBase> e = head; e; e = e->next) {
    text += e->toString();
    if (e != tail) text += ",";
  }
  text += "]";
  return text;
}

void SemList::Append(Ref<SemBase> item) {
  if (!item) return;
  IncludeLocation(item->location);
  if (!tail) {
    head = item;
    tail = item;
  } else {
    tail->next = item;
  }
  while (tail->next) tail = tail->next;
}

Ref<SemBase> SemList::Clone() const {
  KV_ASSERT(head);
  if (!head) return Ref<SemBase>();
  Ref<SemBase> copy = New(head->Clone());
  for (Ref<SemBase> e = head->next; e; e = e->next) copy->Append(e->Clone());
  copy->location = location;
  return copy;
}

void SemList::SetType(IRDataType type) {
  for (Ref<SemBase> e = head; e; e = e->next) e->SetType(type);
}

// SemValue

SemValue::SemValue(TacAddr const* a) : addr(a) { tag = kSemValueTag; }

Ref<SemBase> SemValue::New(TacAddr const* addr, SourceLocation const* loc) {
  SemValue* value = new SemValue(addr);
  if (loc) value->location = *loc;
  return Bound(value);
}

bool SemValue::IsSymbol() const { return addr && !addr->IsConstant(); }
bool SemValue::IsConstant() const { return addr && addr->IsConstant(); }
IRDataType SemValue::GetType() const { return addr ? addr->type : IRDataType(); }
IRValue SemValue::GetValue() const { return addr ? addr->GetValue() : kIRZeroValue; }

string SemValue::toString() const {
  if (IsConstant()) return addr->GetValue().toString(addr->type);
  return string("Symbol") + ultoa((long)(uintptr_t)addr);
}

Ref<SemBase> SemValue::Clone() const { return New(addr, &location); }

void SemValue::SetType(IRDataType) { Error("SetType is prohibited on SemValue"); }

// SemCode

SemCode::SemCode(SourceLocation const* loc) {
  tag = kSemCodeTag;
  if (loc) location = *loc;
}

Ref<SemBase> SemCode::New(IRDataType const& type, SourceLocation const* loc) {
  Ref<SemBase> code = Bound(new SemCode(loc));
  if (!type.Null()) static_cast<SemCode*>(code.Get())->result = code->NewTemp(type, loc);
  return code;
}

Ref<SemBase> SemCode::NewValueWrapper(Ref<SemBase> result, SourceLocation const* loc) {
  SemCode* code = new SemCode(loc);
  code->result = result;
  return Bound(code);
}

// Members go in reverse order: temporaries, then result, then the lines.
SemCode::~SemCode() = default;

string SemCode::toString() const { return string("<code>"); }

void SemCode::Append(Ref<SemBase> other) {
  if (!other) return;
  IncludeLocation(other->location);
  if (other.Get() == this) return;
  TacBlock* lines = other->Code();
  if (!lines) return;
  code.Append(*lines);
  SimpleVector<SymbolID>* theirs = other->Temporaries();
  for (unsigned long i = 0; i < theirs->size(); ++i) temporaries.push_back((*theirs)[i]);
}

Ref<SemBase> SemCode::Clone() const {
  SemCode* copy = new SemCode(&location);
  copy->result = result;
  TacBlockIterator it(&code);
  while (it.Next()) copy->code.AddLine(*it.Value());
  copy->temporaries = temporaries;
  return Bound(copy);
}

void SemCode::AddLine(TacOpcode op, TacAddr const* a, TacAddr const* b, TacAddr const* c) {
  code.AddLine(op, a, b, c, location.startLine);
}

Ref<SemBase> SemCode::NewTemp(IRDataType const& type, SourceLocation const* loc) {
  string name = NextTemporaryName();
  Ref<SymbolTable> table = CurrentSymbolTable();
  if (!table) return Ref<SemBase>();
  SymbolID symbol = table->Store(name, type);
  // Debugger symbols and the like skip what the user never declared.
  symbol.SetUserVisible(false);
  temporaries.push_back(symbol);
  return SemValue::New(symbol.GetAddr(), loc);
}

IRDataType SemCode::GetType() const { return result ? result->GetType() : IRDataType(); }

TacAddr const* SemCode::GetAddr() const { return result ? result->GetAddr() : nilTacAddr; }

// Temporary names

static uint32_t sTemporaryCounter = 0;

string TemporaryName(uint32_t number) {
  static char const kDigits[] = "0123456789ABCDEF";
  char text[9];
  for (int i = 7; i >= 0; --i) {
    text[i] = kDigits[number & 0xF];
    number >>= 4;
  }
  text[8] = 0;
  return string(text);
}

string NextTemporaryName() { return TemporaryName(sTemporaryCounter++); }

uint32_t ExchangeTemporaryCounter(uint32_t next) {
  uint32_t was = sTemporaryCounter;
  sTemporaryCounter = next;
  return was;
}

// Concatenation

Ref<SemBase> ConcatList(Ref<SemBase> a, Ref<SemBase> b) {
  if (!a) return b;
  if (!b) return a;
  if (b->IsList()) {
    b = b->GetContents();
    if (!b) return a;
  }
  Ref<SemBase> list = a->IsList() ? a : SemList::New(a);
  list->Append(b);
  return list;
}

Ref<SemBase> ConcatSemBase(Ref<SemBase> a, Ref<SemBase> b) {
  if (!a) return b;
  if (!b) return a;
  if (b->IsList()) {
    b = b->GetContents();
    if (!b) return a;
  }
  Ref<SemBase> target = a->IsList() || a->Code() ? a : SemList::New(a);
  target->Append(b);
  return target;
}

Ref<SemBase> ConcatCode(Ref<SemBase> a, Ref<SemBase> b) {
  if (!a) return b;
  if (b) a->Append(b);
  return a;
}
