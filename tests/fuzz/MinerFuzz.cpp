// Mines arbitrary bytes as a program, and each line of them as a single
// method and property header. Beside the sanitizers' findings it checks
// what must hold for any input: mining ends and gives the same tree twice;
// every class whose chain of parents ends somewhere has its slots and fields
// inside the counts and the storage it declares; a loop of parents is left
// connected without being followed round; every item held is locked.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "frontend/Miner.h"
#include "frontend/CompileScope.h"
#include "frontend/Lexer.h"
#include "frontend/SrcContext.h"
#include "semantic/SemBase.h"

namespace {

void Check(bool ok, char const* what) {
  if (ok) return;
  fprintf(stderr, "miner invariant broken: %s\n", what);
  abort();
}

// Whether following parents from `cls` ends, within one step per class
// there could be.
bool ChainEnds(ClassDeclaration* cls, unsigned long bound) {
  for (unsigned long steps = 0; cls; cls = cls->GetParent()) {
    if (++steps > bound) return false;
  }
  return true;
}

void CheckClass(ClassDeclaration* cls, unsigned long classCount) {
  Check(cls->lockCount > 0, "a class in a list without a lock");
  for (unsigned int i = 0; i < cls->CountMethods(); ++i) {
    FunctionDeclaration* f = cls->GetMethod(i);
    Check(f->lockCount > 0, "a method in a list without a lock");
  }
  // A loop of Inherits is the grammar's to report; its layout means nothing.
  if (!ChainEnds(cls, classCount + 1)) return;
  for (unsigned int i = 0; i < cls->CountMethods(); ++i) {
    FunctionDeclaration* f = cls->GetMethod(i);
    if (f->GetDispatchMethod() != FunctionDeclaration::kDispatchVtable) continue;
    Check(f->GetDispatchID() >= 0 && f->GetDispatchID() < cls->vtableSlotCount, "a method slot out of the table");
  }
  for (unsigned int i = 0; i < cls->CountProperties(); ++i) {
    PropertyDeclaration* p = cls->GetProperty(i);
    Check(p->GetOffset() >= 0 && p->GetOffset() + p->GetType().StorageSize() <= cls->GetStorageSize(),
          "a field outside the object's storage");
    Check(p->GetIndex() >= 0 && p->GetIndex() < cls->propertySlotCount, "a property index out of the count");
  }
  for (unsigned int i = 0; i < cls->CountEvents(); ++i) {
    int32_t id = cls->GetEvent(i)->GetDispatchID();
    Check(id >= 0 && (uint32_t)id < cls->GetEventTableSlotCount(), "an event slot out of the table");
  }
}

void CheckModule(ModuleDeclaration* m) {
  for (unsigned int i = 0; i < m->CountClasses(); ++i) CheckClass(m->GetClass(i), m->CountClasses());
  for (unsigned int i = 0; i < m->CountModules(); ++i) {
    Check(m->GetModule(i)->GetParent() == m, "an inner module that doesn't know its parent");
    CheckModule(m->GetModule(i));
  }
}

struct Shape {
  unsigned int methods, classes, modules, constants, properties;
  bool failed;
  bool operator==(Shape const& o) const {
    return methods == o.methods && classes == o.classes && modules == o.modules &&
           constants == o.constants && properties == o.properties && failed == o.failed;
  }
};

Shape MineOnce(char const* text, bool checkTree) {
  bool failed = false;
  ModuleDeclaration* m = ExtractDeclarations(text, failed, nullptr);
  Check(m != nullptr, "no module");
  if (checkTree) CheckModule(m);
  Shape shape{m->CountMethods(), m->CountClasses(), m->CountModules(), m->CountConstants(),
              m->CountProperties(), failed};
  m->Unlink();
  delete m;
  return shape;
}

// Each line alone as a host declaration would be.
void MineHeaders(std::string const& text) {
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    string line;
    line.ConstructFromBuffer(text.data() + start, (int)(end - start));
    if (FunctionDeclaration* f = ExtractMethodDeclaration(line, nullptr)) {
      Check(f->lockCount == 0, "a header handed out locked");
      delete f;
    }
    if (PropertyDeclaration* p = ExtractPropertyDeclaration(line)) delete p;
    start = end + 1;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  CompileScope scope;
  // The engine reads a NUL-terminated text: a NUL in the input ends it.
  std::string text(reinterpret_cast<char const*>(data), size);
  text.resize(strlen(text.c_str()));
  Shape first = MineOnce(text.c_str(), true);
  Shape second = MineOnce(text.c_str(), false);
  Check(first == second, "mining the same text twice gave different trees");
  MineHeaders(text);
  return 0;
}
