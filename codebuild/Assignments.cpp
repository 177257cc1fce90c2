#include "codebuild/Assignments.h"

#include "codebuild/Conversions.h"
#include "diag/CompileError.h"
#include "frontend/SrcContext.h"
#include "semantic/DeclarationTable.h"

namespace {

// Reads the old handle through the reference, so that the swap of locks
// drops it, then writes the new one.
void PokeCounted(TacOpcode peek, TacOpcode poke, TacAddr const* target, Ref<SemBase> const& v, Ref<SemBase> code) {
  Ref<SemBase> old = code->NewTemp(target->type.AsElement(), nullptr);
  code->AddLine(peek, target, nilTacAddr, old->GetAddr());
  code->AddLine(tac_SwapLocks, v->GetAddr(), old->GetAddr(), nilTacAddr);
  code->AddLine(poke, v->GetAddr(), nilTacAddr, target);
}

}  // namespace

void AssignToSymbol(TacAddr const* target, Ref<SemBase> value, Ref<SemBase> code) {
  if (!target || !value || !code) return;
  if (target->IsConstant()) {
    Error(NotAssignable, value->Location());
    return;
  }
  IRDataType type = target->type;
  IRDataType stored = type.GetMainType() == kTypeReference ? type.AsElement() : type;
  Ref<SemBase> v = CompileRefAs(value, stored, code);
  if (!v) return;
  switch (type.GetMainType()) {
    case kTypeBoolean:
    case kTypeInteger:
    case kTypeSingle:
    case kTypeDouble:
    case kTypeColor:
    case kTypeClassRef:
      code->AddLine(tac_Store, v->GetAddr(), nilTacAddr, target);
      return;
    case kTypeString:
    case kTypeObject:
    case kTypeArray:
      if (v->GetAddr() == target) return;
      code->AddLine(tac_SwapLocks, v->GetAddr(), target, nilTacAddr);
      code->AddLine(tac_Store, v->GetAddr(), nilTacAddr, target);
      return;
    case kTypeReference:
      switch (stored.GetMainType()) {
        case kTypeBoolean: code->AddLine(tac_PokeB, v->GetAddr(), nilTacAddr, target); return;
        case kTypeInteger:
        case kTypeColor:
        case kTypeClassRef: code->AddLine(tac_PokeI, v->GetAddr(), nilTacAddr, target); return;
        case kTypeSingle: code->AddLine(tac_PokeF, v->GetAddr(), nilTacAddr, target); return;
        case kTypeDouble: code->AddLine(tac_PokeD, v->GetAddr(), nilTacAddr, target); return;
        case kTypeString: PokeCounted(tac_PeekS, tac_PokeS, target, v, code); return;
        case kTypeObject:
        case kTypeArray: PokeCounted(tac_PeekO, tac_PokeO, target, v, code); return;
        default: break;
      }
      break;
    default:
      break;
  }
  // A type with no store (Short, the types of external declarations) would
  // otherwise be dropped without a word.
  Error(NotAssignable, value->Location());
}

void InitializeVariable(SymbolID symbol, Ref<SemBase> code) {
  if (symbol.IsNull() || !code || !symbol.InitializationAllowed()) return;
  bool floating = symbol.GetType().GetMainType() == kTypeDouble || symbol.GetType().GetMainType() == kTypeSingle;
  code->AddLine(tac_Store, floating ? gTacFloatZero : gTacZero, nilTacAddr, symbol.GetAddr());
}

void InitializeSymbols(Ref<SemBase> table, Ref<SemBase> code) {
  Ref<SymbolTableList> list = CurrentSymbolTableList();
  if (!table || !list) return;
  Ref<SymbolTable> symbols = list->GetTable((unsigned long)table->GetValue().sint32);
  if (!symbols) return;
  SymbolTableIterator it(symbols);
  while (it.Next()) InitializeVariable(it.Value(), code);
}

void FinalizeVariable(SymbolID symbol, Ref<SemBase> code) {
  if (symbol.IsNull() || !code || !symbol.FinalizationAllowed() || !symbol.GetType().RefCounted()) return;
  code->AddLine(tac_Unlock, symbol.GetAddr(), nilTacAddr, nilTacAddr);
}

void FinalizeSymbols(Ref<SymbolTable> table, Ref<SemBase> code) {
  if (!table) return;
  SymbolTableIterator it(table);
  while (it.Next()) FinalizeVariable(it.Value(), code);
}

void FinalizeClassProperties(ClassDeclaration* cls, Ref<SemBase> code) {
  if (!cls || !code || !gContext) return;
  // The parent's slots, private ones included: each class releases its own.
  int32_t inherited = cls->GetParent() ? cls->GetParent()->propertySlotCount : 0;
  for (unsigned int i = 0; i < cls->CountProperties(); ++i) {
    PropertyDeclaration* p = cls->GetProperty(i);
    if (p->GetIndex() < inherited || p->isComputed || !p->GetType().RefCounted()) continue;
    code->AddLine(tac_Unlock, gContext->GetObjectSymbolAddr(p->GetType(), p->GetLinkName(), (unsigned)p->GetOffset()),
                  nilTacAddr, nilTacAddr);
  }
}
