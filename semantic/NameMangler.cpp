#include "semantic/NameMangler.h"

#include "semantic/DeclarationTable.h"
#include "semantic/SemBase.h"

// Byte positions within a name; -1 when the byte is absent. Names are
// searched byte-wise: "%", "." and the designators are all ASCII.
static long FirstIndexOf(string const& s, char c) {
  char const* text = s.CString();
  for (long i = 0, n = s.Length(); i < n; ++i)
    if (text[i] == c) return i;
  return -1;
}

static long LastIndexOf(string const& s, char c) {
  char const* text = s.CString();
  for (long i = s.Length() - 1; i >= 0; --i)
    if (text[i] == c) return i;
  return -1;
}

static string InsertAt(string const& s, long at, string const& piece) {
  return left(s, (int)at) + piece + mid(s, (int)at);
}

string TypeCode(IRDataType const& type) {
  switch (type.GetMainType()) {
    case kTypeBoolean: return string("b");
    case kTypeInteger: return string("i");
    case kTypeSingle: return string("f");
    case kTypeDouble: return string("d");
    case kTypeColor: return string("c");
    case kTypeString: return string("s");
    case kTypeClassRef: return string("x");
    case kTypeObject: {
      string name = type.GetClass();
      if (name.Length() == 0) name = string("Object");
      return string("o<") + name + ">";
    }
    // A type has one level of structure at most, so one step of AsElement
    // reaches a plain type or, for a reference to an array, the array.
    case kTypeReference: return string("&") + TypeCode(type.AsElement());
    case kTypeArray: return string("A") + TypeCode(type.AsElement());
    default: return string();
  }
}

string QualifyName(string qualifier, string name) {
  if (qualifier.Length() == 0) return name;
  return qualifier + "." + name;
}

string AddParameterDescriptionToName(string name, IRDataType type) {
  if (FirstIndexOf(name, '%') < 0) name += "%%";
  return name + TypeCode(type);
}

string AddReturnTypeDescriptionToName(string name, IRDataType const& type) {
  string code = type.Null() ? string() : TypeCode(type);
  long percent = FirstIndexOf(name, '%');
  if (percent >= 0) return InsertAt(name, percent + 1, code);
  return name + "%" + code + "%";
}

string AddDesignatorToName(string name, string designator) {
  return InsertAt(name, LastIndexOf(name, '.') + 1, designator);
}

string AddEventDesignatorToName(string name) { return AddDesignatorToName(name, string("#")); }

string AddEventDesignatorToName(string name, string prefix) {
  return AddDesignatorToName(name, prefix + "#");
}

string AddAssignsDesignatorToName(string name) { return AddDesignatorToName(name, string("=")); }

string AddExtendsDesignatorToName(string name) { return AddDesignatorToName(name, string("$")); }

string MakeDestructorBaseName(string className) { return string("~") + className; }

string AddInterfaceToClassName(string className, string interfaceName) {
  return className + ":" + interfaceName;
}

string MangledMethodName(FunctionDeclaration* method) {
  if (!method) return string();
  string name = AddReturnTypeDescriptionToName(method->GetBaseName(), method->GetType());
  for (unsigned int i = 0; i < method->CountParameters(); ++i) {
    ParameterDeclaration* parameter = method->GetParameter(i);
    name = AddParameterDescriptionToName(name, parameter->GetType());
    // A ParamArray is told by its array code alone.
    if (parameter->designator == ParameterDeclaration::kDesignatorAssigns)
      name = AddAssignsDesignatorToName(name);
    if (parameter->designator == ParameterDeclaration::kDesignatorExtends)
      name = AddExtendsDesignatorToName(name);
  }
  return name;
}

string MangledPropertyName(PropertyDeclaration* property) {
  if (!property) return string();
  return property->GetName() + "%" + TypeCode(property->GetType()) + "%";
}

// One element of the grammar's parameter list: a marker applies its
// designator, anything else describes one parameter.
static string AddParameterElementToName(string name, Ref<SemBase> const& element) {
  if (element->IsIdentifier()) {
    string text = element->toString();
    if (text == "ASSIGNS") return AddAssignsDesignatorToName(name);
    if (text == "EXTENDS") return AddExtendsDesignatorToName(name);
  }
  IRDataType type = element->GetType();
  if (type.Null()) return name;
  return AddParameterDescriptionToName(name, type);
}

string MangleFunctionName(string base, Ref<SemBase> parameters, Ref<SemBase> returnType) {
  string name = base;
  if (parameters) {
    if (parameters->IsList()) {
      for (Ref<SemBase> e = parameters->GetContents(); e; e = e->GetNext())
        name = AddParameterElementToName(name, e);
    } else {
      name = AddParameterElementToName(name, parameters);
    }
  }
  if (returnType) name = AddReturnTypeDescriptionToName(name, returnType->GetType());
  return name;
}
