#include "frontend/Miner.h"

#include <cstdint>

#include "frontend/Lexer.h"
#include "frontend/Tokens.h"
#include "semantic/NameMangler.h"
#include "semantic/SemBase.h"

namespace {

using Scope = ScopedDeclaration::Scope;

// The base name a Declare inside a method holds until the grammar reaches
// its line: no script can write it, so the method can't be called early.
char const kLocalDeclareBaseName[] = "% declare";

// ---------------------------------------------------------------------------
// Token helpers

// The next token without taking it; yylval is left as it was.
int PeekToken() {
  LexerState state = SaveLexerState();
  Ref<SemBase> value = yylval;
  int token = GetToken();
  RestoreLexerState(state);
  yylval = value;
  return token;
}

bool TakeToken(int token) {
  if (PeekToken() != token) return false;
  GetToken();
  return true;
}

// The lexer gives `=` inside a statement as '=' and at its head as ASSIGN;
// a declaration may meet either.
bool TakeEquals() { return TakeToken('=') || TakeToken(kTokenASSIGN); }

bool EndsLine(int token) { return token == kTokenNEWLINE || token == kEndOfText; }

// Passes the rest of a line whose token `token` was just read; the line
// break (or the end of the text) is taken too.
void SkipLine(int token) {
  while (!EndsLine(token)) token = GetToken();
}

string TokenText() { return yylval->toString(); }

// Takes an IDENT of exactly this spelling (words such as Alias are no
// keywords); anything else is left in place.
bool TakeWord(char const* word) {
  LexerState state = SaveLexerState();
  Ref<SemBase> value = yylval;
  if (GetToken() == kTokenIDENT && TokenText() == word) return true;
  RestoreLexerState(state);
  yylval = value;
  return false;
}

Scope ScopeOfWord(int token) {
  if (token == kTokenProtected) return ScopedDeclaration::kScopeProtected;
  if (token == kTokenPrivate) return ScopedDeclaration::kScopePrivate;
  return ScopedDeclaration::kScopePublic;
}

bool IsScopeWord(int token) {
  return token == kTokenPublic || token == kTokenProtected || token == kTokenPrivate;
}

int32_t NegateWrapping(int32_t v) { return (int32_t)(0u - (uint32_t)v); }

IRDataType SelfType(ClassDeclaration* cls) { return IRDataType(cls->GetName()); }

ParameterDeclaration* NewSelfParameter(ClassDeclaration* cls) {
  ParameterDeclaration* self = ParameterDeclaration::New();
  self->SetName("self");
  self->SetType(SelfType(cls));
  return self;
}

// ---------------------------------------------------------------------------
// Names and types

// DeclarationName -> IDENT      (the token is taken whatever it is)
string ParseDeclarationName() {
  if (GetToken() != kTokenIDENT) return string();
  return TokenText();
}

// DataType -> Integer | String | Single | Double | Boolean | Color | Object | Class | IDENT
IRDataType ParseDataType() {
  switch (GetToken()) {
    case kTokenInteger: return IRDataType(kTypeInteger);
    case kTokenString: return IRDataType(kTypeString);
    case kTokenSingle: return IRDataType(kTypeSingle);
    case kTokenDouble: return IRDataType(kTypeDouble);
    case kTokenBoolean: return IRDataType(kTypeBoolean);
    case kTokenColor: return IRDataType(kTypeColor);
    case kTokenObject: return IRDataType(kTypeObject);
    case kTokenClass: return IRDataType(kTypeClassRef);
    case kTokenIDENT: return IRDataType(TokenText());
    default: return IRDataType();
  }
}

// Dimensions -> { "," } ")"      (behind a "(" already taken)
// Counts dimensions; a line break ends the count without being taken.
int ParseDimensionCount() {
  int count = 1;
  for (;;) {
    int token = PeekToken();
    if (EndsLine(token)) return count;
    GetToken();
    if (token == ',') ++count;
    else if (token == ')') return count;
  }
}

// ReturnType -> DataType [ "(" Dimensions ]
IRDataType ParseReturnType() {
  IRDataType type = ParseDataType();
  if (TakeToken('(')) type = type.AsArray(ParseDimensionCount());
  return type;
}

// The types of Declare that are no keywords, matched by name.
struct ExternalTypeName {
  char const* name;
  SimpleDataType type;
  bool asResult;
};
ExternalTypeName const kExternalTypes[] = {
    {"PString", kTypePString, false}, {"CString", kTypeCString, false},
    {"OSType", kTypeOSType, false},   {"Ptr", kTypePtr, true},
    {"WindowPtr", kTypeWindowPtr, false}, {"Short", kTypeShort, true},
};

// A class type named like an external type becomes that type, in the same
// shape (plain, array or reference); any other type stays.
IRDataType ReplaceExternalType(IRDataType const& type, bool forResult) {
  string cls = type.GetClass();
  if (cls.Length() == 0) return type;
  for (ExternalTypeName const& ext : kExternalTypes) {
    if (!(cls == ext.name) || (forResult && !ext.asResult)) continue;
    IRDataType plain(ext.type);
    switch (type.GetMainType()) {
      case kTypeArray: return plain.AsArray(type.GetDimensions());
      case kTypeReference:
        if (type.GetElementType() == kTypeArray) return plain.AsArray(type.GetDimensions()).AsReference();
        return plain.AsReference();
      default: return plain;
    }
  }
  return type;
}

// ---------------------------------------------------------------------------
// Parameters

// DefaultValue -> [ "-" ] ( INT_LIT | FLOAT_LIT ) | STR_LIT | True | False | COLOR_LIT | Nil
// The token is taken whatever it is; only one of the parameter's type
// makes the parameter optional.
void ParseParameterDefaultValue(ParameterDeclaration* param) {
  SimpleDataType main = param->GetType().GetMainType();
  bool number = main == kTypeInteger || main == kTypeSingle || main == kTypeDouble;
  int token = GetToken();
  double sign = 1.0;
  if (number && token == '-') {
    sign = -1.0;
    token = GetToken();
  }
  IRValue literal = yylval->GetValue();
  bool isInt = token == kTokenINT_LIT, isFloat = token == kTokenFLOAT_LIT;
  double numeric = isInt ? (double)literal.sint32 : literal.real64;
  IRValue value;
  bool accepted = true;
  if (main == kTypeBoolean && (token == kTokenTrue || token == kTokenFalse)) {
    value = IRValue::SInt32(token == kTokenTrue ? 1 : 0);
  } else if (main == kTypeInteger && isInt) {
    value = IRValue::SInt32(sign < 0 ? NegateWrapping(literal.sint32) : literal.sint32);
  } else if (main == kTypeInteger && isFloat) {
    value = IRValue::SInt32(TruncateToInt32(sign * numeric));
  } else if (main == kTypeSingle && (isInt || isFloat)) {
    value = IRValue::Real32((float)(sign * numeric));
  } else if (main == kTypeDouble && (isInt || isFloat)) {
    value = IRValue::Real64(sign * numeric);
  } else if (main == kTypeString && token == kTokenSTR_LIT) {
    value.text = literal.text;
  } else if (main == kTypeColor && token == kTokenCOLOR_LIT) {
    value = IRValue::SInt32(literal.sint32);
  } else if (main == kTypeObject && token == kTokenNil) {
    value = kIRZeroValue;
  } else {
    accepted = false;
  }
  if (!accepted) return;
  param->SetDefaultValue(value);
  param->SetMode(ParameterDeclaration::kParamOptional);
}

struct ParameterState {
  bool byRef = false;
  bool optional = false;
  int32_t kind = ParameterDeclaration::kDesignatorNone;
  int dimensions = 0;
  ParameterDeclaration* param = nullptr;
};

// Adds the parameter in hand, extends the method's name by it, and clears
// the state for the next one.
void FinishParameter(FunctionDeclaration* method, ParameterState& state) {
  ParameterDeclaration* param = state.param;
  if (param) {
    param->SetDesignator(state.kind);
    method->AddParameter(param);
    string name = method->GetName();
    if (!param->GetType().Null()) name = AddParameterDescriptionToName(name, param->GetType());
    if (state.kind == ParameterDeclaration::kDesignatorExtends) name = AddExtendsDesignatorToName(name);
    if (state.kind == ParameterDeclaration::kDesignatorAssigns) name = AddAssignsDesignatorToName(name);
    method->SetName(name);
  }
  state = ParameterState();
}

ParameterDeclaration* ParameterInHand(ParameterState& state) {
  if (!state.param) state.param = ParameterDeclaration::New();
  return state.param;
}

// ParameterList -> [ Parameter { "," Parameter } ] ")"      (behind the "(")
// Parameter -> { ByRef | ByVal | Optional | Assigns | Extends | ParamArray }
//              Name [ "(" Dimensions ] [ As DataType ] [ "=" DefaultValue ]
// A line break or the end of the text also ends the list.
void ParseParameterList(FunctionDeclaration* method) {
  ParameterState state;
  for (;;) {
    int token = GetToken();
    switch (token) {
      case kTokenByRef: state.byRef = true; break;
      case kTokenByVal: state.byRef = false; break;
      case kTokenAssigns: state.kind = ParameterDeclaration::kDesignatorAssigns; break;
      case kTokenExtends: state.kind = ParameterDeclaration::kDesignatorExtends; break;
      case kTokenParamArray: state.kind = ParameterDeclaration::kDesignatorParamArray; break;
      case kTokenOptional: state.optional = true; break;
      case kTokenIDENT:
        if (!state.param) {
          ParameterInHand(state)->SetName(TokenText());
          if (state.optional) state.param->SetMode(ParameterDeclaration::kParamOptional);
        }
        break;
      case '(':
        state.dimensions = ParseDimensionCount();
        break;
      case kTokenAs: {
        ParameterDeclaration* param = ParameterInHand(state);
        param->SetDesignator(state.kind);
        IRDataType type = ParseDataType();
        if (state.kind == ParameterDeclaration::kDesignatorParamArray) state.dimensions = 1;
        if (state.dimensions) type = type.AsArray(state.dimensions);
        if (state.byRef) type = type.AsReference();
        param->SetType(type);
        break;
      }
      case '=':
      case kTokenASSIGN:
        if (!state.param) {
          GetToken();
          break;
        }
        ParseParameterDefaultValue(state.param);
        if (state.param->GetName() == "__Selector") state.param->SetMode(ParameterDeclaration::kParamHidden);
        break;
      case ',':
        FinishParameter(method, state);
        break;
      case ')':
      case kTokenNEWLINE:
      case kEndOfText:
        FinishParameter(method, state);
        return;
      default:
        break;
    }
  }
}

// ---------------------------------------------------------------------------
// Methods

// EventHandler -> Handles Event      (behind Handles)
void ParseEventHandler(FunctionDeclaration* method, ClassDeclaration* cls) {
  if (!TakeToken(kTokenEvent)) return;
  string eventName = method->GetBaseName();
  method->SetName(AddEventDesignatorToName(method->GetName()));
  method->SetBaseName(AddEventDesignatorToName(eventName));
  cls->AddHandledEvent(HandledEvent::New(eventName, method->GetName()));
}

// MethodHeader -> Name [ "(" ParameterList ] [ As ReturnType ] [ Handles Event ]
// A Sub is told by its null type, so `isFunction` doesn't steer the parse:
// a Sub with a result is the grammar's to refuse.
FunctionDeclaration* ParseMethodDeclaration(bool isFunction, ClassDeclaration* cls) {
  (void)isFunction;
  FunctionDeclaration* method = FunctionDeclaration::New();
  string base = ParseDeclarationName();
  method->SetBaseName(base);
  method->SetName(base);
  if (cls) {
    method->AddParameter(NewSelfParameter(cls));
    method->SetName(AddParameterDescriptionToName(QualifyName(cls->GetName(), base), SelfType(cls)));
  }
  if (TakeToken('(')) ParseParameterList(method);
  IRDataType result;
  if (TakeToken(kTokenAs)) result = ParseReturnType();
  method->SetType(result);
  // Also with no result: a Sub's name carries its empty "%%" section.
  method->SetName(AddReturnTypeDescriptionToName(method->GetName(), result));
  if (cls && TakeToken(kTokenHandles)) ParseEventHandler(method, cls);
  return method;
}

FunctionDeclaration* ParseExternalDeclaration(bool isLocal, ClassDeclaration* cls);

// MethodBody -> { Token | Declare ExternalDecl } End EndWord
// Statements aren't read; only a local Declare is kept, in the method.
void ParseMethodBody(bool& failed, int endToken, FunctionDeclaration* method) {
  for (;;) {
    int token = GetToken();
    if (token == kEndOfText) {
      failed = true;
      return;
    }
    if (token == kTokenDeclare) {
      if (FunctionDeclaration* local = ParseExternalDeclaration(true, nullptr)) method->AddMethod(local);
      continue;
    }
    if (token != kTokenEnd) continue;
    int word = GetToken();
    if (word == endToken) return;
    if (word == kTokenSub || word == kTokenFunction || word == kTokenClass ||
        word == kTokenInterface || word == kTokenModule) {
      failed = true;
      return;
    }
  }
}

// SubDecl -> Sub MethodHeader NL MethodBody      (behind Sub)
FunctionDeclaration* ParseSubDeclaration(bool& failed, ClassDeclaration* cls) {
  FunctionDeclaration* method = ParseMethodDeclaration(false, cls);
  ParseMethodBody(failed, kTokenSub, method);
  return method;
}

// FunctionDecl -> Function MethodHeader NL MethodBody      (behind Function)
FunctionDeclaration* ParseFunctionDeclaration(bool& failed, ClassDeclaration* cls) {
  FunctionDeclaration* method = ParseMethodDeclaration(true, cls);
  ParseMethodBody(failed, kTokenFunction, method);
  return method;
}

FunctionDeclaration* ParseMethodOfKind(int token, bool& failed, ClassDeclaration* cls) {
  return token == kTokenSub ? ParseSubDeclaration(failed, cls) : ParseFunctionDeclaration(failed, cls);
}

// ExternalDecl -> ( Sub | Function ) Name Lib LibName [ Alias STR_LIT ]
//                 [ "(" ParameterList ] [ As DataType ]      (behind Declare)
// The name stays the link name as written: no qualifier, no description.
FunctionDeclaration* ParseExternalDeclaration(bool isLocal, ClassDeclaration* cls) {
  int kind = GetToken();
  if (kind != kTokenSub && kind != kTokenFunction) {
    SkipLine(kind);
    return nullptr;
  }
  FunctionDeclaration* method = FunctionDeclaration::New();
  string name = ParseDeclarationName();
  method->SetExternal(true);
  method->SetBaseName(isLocal ? string(kLocalDeclareBaseName) : name);
  if (cls) method->AddParameter(NewSelfParameter(cls));
  if (TakeToken(kTokenLib)) {
    GetToken();
    // A local Declare keeps the token as written, quotes and all, since it
    // may name a constant that only the grammar pass can resolve.
    method->SetSourceLibrary(isLocal ? yylval->toString() : yylval->GetValue().text);
    if (TakeWord("Alias") && TakeToken(kTokenSTR_LIT)) name = yylval->GetValue().text;
  }
  if (TakeToken('(')) ParseParameterList(method);
  unsigned int first = cls ? 1 : 0;
  for (unsigned int i = first; i < method->CountParameters(); ++i) {
    ParameterDeclaration* param = method->GetParameter(i);
    param->SetType(ReplaceExternalType(param->GetType(), false));
  }
  if (kind == kTokenFunction && TakeToken(kTokenAs)) method->SetType(ReplaceExternalType(ParseDataType(), true));
  method->SetName(name);
  return method;
}

// EventDecl -> Event Name [ "(" ParameterList ] [ As ReturnType ]      (behind New)
FunctionDeclaration* ParseNewEventDeclaration(ClassDeclaration* cls) {
  FunctionDeclaration* event = FunctionDeclaration::New();
  string base = ParseDeclarationName();
  event->SetBaseName(base);
  event->AddParameter(NewSelfParameter(cls));
  event->SetName(AddParameterDescriptionToName(QualifyName(cls->GetName(), base), SelfType(cls)));
  event->SetDispatchMethod(FunctionDeclaration::kDispatchEvent);
  if (TakeToken('(')) ParseParameterList(event);
  IRDataType result;
  if (TakeToken(kTokenAs)) result = ParseReturnType();
  event->SetType(result);
  event->SetName(AddReturnTypeDescriptionToName(event->GetName(), result));
  return event;
}

// ---------------------------------------------------------------------------
// Constants and properties

// ConstDecl -> Name [ "=" [ "-" ] [ Not ] Literal ]      (behind Const)
ConstantDeclaration* ParseConstantDeclaration() {
  ConstantDeclaration* constant = ConstantDeclaration::New();
  constant->SetName(ParseDeclarationName());
  if (!TakeEquals()) return constant;
  bool negative = TakeToken('-');
  bool inverted = TakeToken(kTokenNot);
  int token = PeekToken();
  // Without a literal the token belongs to the rest of the line.
  if (token != kTokenINT_LIT && token != kTokenFLOAT_LIT && token != kTokenSTR_LIT &&
      token != kTokenTrue && token != kTokenFalse && token != kTokenCOLOR_LIT && token != kTokenNil)
    return constant;
  GetToken();
  IRValue literal = yylval->GetValue();
  IRValue value;
  IRDataType type;
  switch (token) {
    case kTokenINT_LIT:
      value = IRValue::SInt32(negative ? NegateWrapping(literal.sint32) : literal.sint32);
      type = IRDataType(kTypeInteger);
      break;
    case kTokenFLOAT_LIT:
      value = IRValue::Real64(negative ? -literal.real64 : literal.real64);
      type = IRDataType(kTypeDouble);
      break;
    case kTokenSTR_LIT:
      value.text = literal.text;
      type = IRDataType(kTypeString);
      break;
    case kTokenTrue:
    case kTokenFalse:
      value = IRValue::SInt32((token == kTokenTrue) != inverted ? 1 : 0);
      type = IRDataType(kTypeBoolean);
      break;
    case kTokenCOLOR_LIT:
      value = IRValue::SInt32(literal.sint32);
      type = IRDataType(kTypeColor);
      break;
    default:  // Nil
      value = kIRZeroValue;
      type = IRDataType(kTypeObject);
      break;
  }
  constant->SetValue(value);
  constant->SetType(type);
  return constant;
}

// PropertyDecl -> Name [ "(" Dimensions ] { "," Name [ "(" Dimensions ] } As DataType
//                 { "," PropertyDecl }      (the first Name is in yylval)
// The line break is left for the caller; an initial value is passed over.
// Skips to the comma that ends a clause of a declaration, outside any
// parentheses, or to the end of the line, which it leaves unread.
void SkipToClauseEnd() {
  int depth = 0;
  for (;;) {
    int token = PeekToken();
    if (EndsLine(token)) return;
    GetToken();
    if (token == '(') ++depth;
    if (token == ')' && depth > 0) --depth;
    if (token == ',' && depth == 0) return;
  }
}

SimpleVector<PropertyDeclaration*> ParsePropertyDeclaration() {
  SimpleVector<PropertyDeclaration*> result;
  SimpleVector<string> names;
  SimpleVector<int> dimensions;
  names.push_back(TokenText());
  dimensions.push_back(0);
  for (;;) {
    int token = PeekToken();
    if (EndsLine(token)) break;
    GetToken();
    if (token == kTokenIDENT) {
      names.push_back(TokenText());
      dimensions.push_back(0);
    } else if (token == '(') {
      int count = ParseDimensionCount();
      if (names.size() != 0) dimensions[names.size() - 1] = count;
    } else if (token == kTokenAs) {
      IRDataType type = ParseDataType();
      for (unsigned long i = 0; i < names.size(); ++i) {
        PropertyDeclaration* property = PropertyDeclaration::New();
        property->SetName(names[i]);
        property->SetType(dimensions[i] ? type.AsArray(dimensions[i]) : type);
        result.push_back(property);
      }
      names.deleteAll();
      dimensions.deleteAll();
    } else if (token != ',') {
      // An initialiser (`= f(1, 2)`) or anything else unexpected: what
      // follows the next comma outside parentheses is another clause.
      SkipToClauseEnd();
    }
  }
  return result;
}

// Behind Dim: a name must follow, else the line is passed.
bool TakePropertyName() {
  int token = GetToken();
  if (token == kTokenIDENT) return true;
  SkipLine(token);
  return false;
}

// ---------------------------------------------------------------------------
// Classes, interfaces, modules

void AddClassProperties(ClassDeclaration* cls, SimpleVector<PropertyDeclaration*> const& properties,
                        Scope scope) {
  for (unsigned long i = 0; i < properties.size(); ++i) {
    PropertyDeclaration* property = properties[i];
    property->SetScope(scope);
    property->SetLinkName(QualifyName(cls->GetName(), property->GetName()));
    property->SetOffset(cls->GetStorageSize());
    cls->SetStorageSize(cls->GetStorageSize() + property->GetType().StorageSize());
    property->SetIndex(cls->propertySlotCount++);
    cls->AddProperty(property);
  }
}

// The End of a block: the good word closes it, a word of another block
// closes it too but breaks the structure, anything else is a statement's
// End (End If and the like) and its line is passed. Answers whether the
// block is closed.
bool ParseBlockEnd(int goodWord, bool& failed) {
  int word = GetToken();
  if (word == goodWord) return true;
  if (word == kTokenSub || word == kTokenFunction || word == kTokenClass ||
      word == kTokenInterface || word == kTokenModule) {
    failed = true;
    return true;
  }
  SkipLine(word);
  return false;
}

// One member of a class. Answers false when the class is closed.
bool ParseClassMember(ClassDeclaration* cls, int token, Scope scope, bool& failed) {
  switch (token) {
    case kTokenSub:
    case kTokenFunction: {
      FunctionDeclaration* method = ParseMethodOfKind(token, failed, cls);
      method->SetScope(scope);
      if (scope != ScopedDeclaration::kScopePrivate)
        method->SetDispatchMethod(FunctionDeclaration::kDispatchVtable);
      cls->AddMethod(method);
      return true;
    }
    case kTokenDeclare:
      if (FunctionDeclaration* method = ParseExternalDeclaration(false, cls)) {
        method->SetScope(scope);
        cls->AddMethod(method);
      }
      return true;
    case kTokenInherits: {
      string parent = ParseDeclarationName();
      if (cls->GetType().GetClass().Length() == 0) cls->SetType(IRDataType(parent));
      return true;
    }
    case kTokenImplements: {
      string name = ParseDeclarationName();
      if (name.Length() != 0) cls->AddImplementedInterface(name);
      return true;
    }
    case kTokenNew:
      if (TakeToken(kTokenEvent)) {
        FunctionDeclaration* event = ParseNewEventDeclaration(cls);
        event->SetScope(ScopedDeclaration::kScopePrivate);
        cls->AddEvent(event);
      }
      return true;
    case kTokenDim:
      if (TakePropertyName()) AddClassProperties(cls, ParsePropertyDeclaration(), scope);
      return true;
    case kTokenIDENT:
      AddClassProperties(cls, ParsePropertyDeclaration(), scope);
      return true;
    case kTokenConst: {
      ConstantDeclaration* constant = ParseConstantDeclaration();
      constant->SetScope(scope);
      cls->AddConstant(constant);
      return true;
    }
    case kTokenEnd:
      return !ParseBlockEnd(kTokenClass, failed);
    case kEndOfText:
      failed = true;
      return false;
    case kTokenNEWLINE:
      return true;
    default:
      SkipLine(token);
      return true;
  }
}

// ClassDecl -> Class Name NL { Member NL } End Class      (behind Class)
// Member -> [ Public | Protected | Private ] ( SubDecl | FunctionDecl | Declare ExternalDecl
//           | Inherits Name | Implements Name | New EventDecl | [ Dim ] PropertyDecl | Const ConstDecl )
ClassDeclaration* ParseClassDeclaration(bool& failed) {
  ClassDeclaration* cls = ClassDeclaration::New();
  cls->SetType(IRDataType(kTypeObject));
  string name = ParseDeclarationName();
  cls->SetName(name);
  cls->SetLinkName(name);
  Scope scope = ScopedDeclaration::kScopePublic;
  for (;;) {
    int token = GetToken();
    if (IsScopeWord(token)) {
      scope = ScopeOfWord(token);
      continue;
    }
    if (!ParseClassMember(cls, token, scope, failed)) break;
    scope = ScopedDeclaration::kScopePublic;
  }
  cls->AddMethod(MakeClassLookupFunction(cls));
  return cls;
}

// InterfaceDecl -> Interface Name NL { ( Sub | Function ) MethodHeader NL } End Interface
// (behind Interface). The interface's type names the interface itself.
ClassDeclaration* ParseInterfaceDeclaration(bool& failed) {
  ClassDeclaration* cls = ClassDeclaration::New();
  cls->SetInterfaceFlag(true);
  string name = ParseDeclarationName();
  cls->SetName(name);
  cls->SetLinkName(name);
  cls->SetType(IRDataType(name));
  for (;;) {
    int token = GetToken();
    if (token == kTokenSub || token == kTokenFunction) {
      FunctionDeclaration* method = ParseMethodDeclaration(token == kTokenFunction, cls);
      method->SetDispatchMethod(FunctionDeclaration::kDispatchVtable);
      cls->AddMethod(method);
    } else if (token == kTokenEnd) {
      if (ParseBlockEnd(kTokenInterface, failed)) return cls;
    } else if (token == kEndOfText) {
      failed = true;
      return cls;
    } else {
      SkipLine(token);
    }
  }
}

// A class inside a module: its link name, its own methods' names (not the
// externals', which are link names as written), its handlers and its
// fields' link names take the module's name in front.
void QualifyClassIntoModule(ClassDeclaration* cls, string const& module) {
  cls->SetLinkName(QualifyName(module, cls->GetLinkName()));
  for (unsigned int i = 0; i < cls->CountMethods(); ++i) {
    FunctionDeclaration* method = cls->GetMethod(i);
    if (!method->External()) method->SetName(QualifyName(module, method->GetName()));
  }
  for (unsigned int i = 0; i < cls->CountHandledEvents(); ++i) {
    HandledEvent* handled = cls->GetHandledEvent(i);
    handled->SetHandlerName(QualifyName(module, handled->GetHandlerName()));
  }
  for (unsigned int i = 0; i < cls->CountProperties(); ++i) {
    PropertyDeclaration* property = cls->GetProperty(i);
    property->SetLinkName(QualifyName(module, property->GetLinkName()));
  }
}

// One member of a module. Answers false when the module is closed.
bool ParseModuleMember(ModuleDeclaration* module, int token, Scope scope, bool& failed) {
  switch (token) {
    case kTokenSub:
    case kTokenFunction: {
      FunctionDeclaration* method = ParseMethodOfKind(token, failed, nullptr);
      method->SetName(QualifyName(module->GetName(), method->GetName()));
      method->SetScope(scope);
      module->AddMethod(method);
      return true;
    }
    case kTokenDeclare:
      if (FunctionDeclaration* method = ParseExternalDeclaration(false, nullptr)) {
        method->SetScope(scope);
        module->AddMethod(method);
      }
      return true;
    case kTokenClass: {
      ClassDeclaration* cls = ParseClassDeclaration(failed);
      QualifyClassIntoModule(cls, module->GetName());
      cls->SetScope(scope);
      module->AddClass(cls);
      return true;
    }
    case kTokenDim:
    case kTokenIDENT: {
      if (token == kTokenDim && !TakePropertyName()) return true;
      SimpleVector<PropertyDeclaration*> properties = ParsePropertyDeclaration();
      for (unsigned long i = 0; i < properties.size(); ++i) {
        properties[i]->SetScope(scope);
        properties[i]->SetLinkName(QualifyName(module->GetName(), properties[i]->GetName()));
        module->AddProperty(properties[i]);
      }
      return true;
    }
    case kTokenConst: {
      ConstantDeclaration* constant = ParseConstantDeclaration();
      constant->SetScope(scope);
      module->AddConstant(constant);
      return true;
    }
    case kTokenEnd:
      return !ParseBlockEnd(kTokenModule, failed);
    case kEndOfText:
      failed = true;
      return false;
    case kTokenNEWLINE:
      return true;
    default:
      SkipLine(token);
      return true;
  }
}

// ModuleDecl -> Module Name NL { [ Public | Protected | Private ]
//               ( SubDecl | FunctionDecl | Declare ExternalDecl | ClassDecl
//               | [ Dim ] PropertyDecl | Const ConstDecl ) NL } End Module      (behind Module)
ModuleDeclaration* ParseModuleDeclaration(bool& failed) {
  ModuleDeclaration* module = ModuleDeclaration::New();
  module->SetName(ParseDeclarationName());
  Scope scope = ScopedDeclaration::kScopePublic;
  for (;;) {
    int token = GetToken();
    if (IsScopeWord(token)) {
      scope = ScopeOfWord(token);
      continue;
    }
    if (!ParseModuleMember(module, token, scope, failed)) break;
    scope = ScopedDeclaration::kScopePublic;
  }
  return module;
}

// Program -> { ( SubDecl | FunctionDecl | ClassDecl | InterfaceDecl | ModuleDecl
//            | Const ConstDecl | Dim PropertyDecl | Statement ) NL }
// A statement is passed token by token, whatever it says; a line joined by
// `_` is one line to the lexer and so passed whole.
void ParseTopLevelDeclarations(ModuleDeclaration* module, bool& failed) {
  for (;;) {
    int token = GetToken();
    switch (token) {
      case kEndOfText:
        return;
      case kTokenNEWLINE:
        break;
      case kTokenSub:
      case kTokenFunction:
        module->AddMethod(ParseMethodOfKind(token, failed, nullptr));
        break;
      case kTokenClass:
        module->AddClass(ParseClassDeclaration(failed));
        break;
      case kTokenInterface: {
        ClassDeclaration* iface = ParseInterfaceDeclaration(failed);
        iface->AddMethod(MakeClassLookupFunction(iface));
        module->AddClass(iface);
        break;
      }
      case kTokenModule: {
        ModuleDeclaration* inner = ParseModuleDeclaration(failed);
        inner->SetParent(module);
        module->AddModule(inner);
        break;
      }
      case kTokenConst:
        module->AddConstant(ParseConstantDeclaration());
        break;
      case kTokenDim:
        if (TakePropertyName()) {
          SimpleVector<PropertyDeclaration*> properties = ParsePropertyDeclaration();
          for (unsigned long i = 0; i < properties.size(); ++i) {
            properties[i]->SetLinkName(properties[i]->GetName());
            module->AddProperty(properties[i]);
          }
        }
        break;
      default:
        SkipLine(token);
        break;
    }
  }
}

// ---------------------------------------------------------------------------
// Inheritance

// Numbers a class with no parent: method slots and direct numbers from 0,
// events by position.
void ComputeBaseClass(ClassDeclaration* cls) {
  int32_t vtable = 0, direct = 0;
  for (unsigned int i = 0; i < cls->CountMethods(); ++i) {
    FunctionDeclaration* method = cls->GetMethod(i);
    if (method->GetDispatchMethod() == FunctionDeclaration::kDispatchVtable) method->SetDispatchID(vtable++);
    else if (method->GetDispatchMethod() == FunctionDeclaration::kDispatchNormal) method->SetDispatchID(direct++);
  }
  for (unsigned int i = 0; i < cls->CountEvents(); ++i) cls->GetEvent(i)->SetDispatchID((int32_t)i);
  cls->SetEventTableSlotCount(cls->CountEvents());
  cls->vtableSlotCount = vtable;
  cls->directSlotCount = direct;
}

FunctionDeclaration* LocateOverridingMethod(FunctionDeclaration* method,
                                            SimpleVector<FunctionDeclaration*> const& candidates) {
  for (unsigned long i = 0; i < candidates.size(); ++i) {
    if (SignaturesMatchExactly(method, candidates[i])) return candidates[i];
  }
  return nullptr;
}

void RemoveFrom(SimpleVector<FunctionDeclaration*>& list, FunctionDeclaration* method) {
  for (unsigned long i = 0; i < list.size(); ++i) {
    if (list[i] != method) continue;
    list.deleteIdx(i);
    return;
  }
}

// The class's own methods of `base`; inherited ones, added as this goes,
// are no candidates for overriding.
SimpleVector<FunctionDeclaration*> OwnMethodsNamed(ClassDeclaration* cls, unsigned int ownCount,
                                                   string const& base) {
  SimpleVector<FunctionDeclaration*> result;
  for (unsigned int i = 0; i < ownCount; ++i) {
    if (cls->GetMethod(i)->GetBaseName() == base) result.push_back(cls->GetMethod(i));
  }
  return result;
}

void InheritMethods(ClassDeclaration* cls, ClassDeclaration* parent) {
  unsigned int ownCount = cls->CountMethods();
  SimpleVector<FunctionDeclaration*> pending;
  for (unsigned int i = 0; i < ownCount; ++i) {
    if (cls->GetMethod(i)->GetScope() != ScopedDeclaration::kScopePrivate) pending.push_back(cls->GetMethod(i));
  }
  unsigned int parentCount = parent->CountMethods();
  for (unsigned int i = 0; i < parentCount; ++i) {
    FunctionDeclaration* inherited = parent->GetMethod(i);
    if (inherited->GetScope() == ScopedDeclaration::kScopePrivate) continue;
    FunctionDeclaration* over =
        LocateOverridingMethod(inherited, OwnMethodsNamed(cls, ownCount, inherited->GetBaseName()));
    if (!over) {
      cls->AddMethod(inherited);
      continue;
    }
    inherited->SetOverridden(true);
    if (inherited->GetDispatchMethod() != FunctionDeclaration::kDispatchVtable) continue;
    over->SetDispatchMethod(FunctionDeclaration::kDispatchVtable);
    over->SetDispatchID(inherited->GetDispatchID());
    RemoveFrom(pending, over);
  }
  int32_t vtable = parent->vtableSlotCount, direct = parent->directSlotCount;
  for (unsigned long i = 0; i < pending.size(); ++i) {
    FunctionDeclaration* method = pending[i];
    if (method->GetDispatchMethod() == FunctionDeclaration::kDispatchVtable) method->SetDispatchID(vtable++);
    else if (method->GetDispatchMethod() == FunctionDeclaration::kDispatchNormal) method->SetDispatchID(direct++);
  }
  cls->vtableSlotCount = vtable;
  cls->directSlotCount = direct;
}

void ComputeInheritance(ClassDeclaration* cls, ClassDeclaration* parent, ModuleDeclaration* module);

// The name of the class's parent; an interface's type names the interface
// itself, which is no parent.
string ParentName(ClassDeclaration* cls) {
  return cls->IsInterface() ? string() : cls->GetType().GetClass();
}

// Brings a class to its final shape: through its parent if it names one
// that is known, else on its own.
void CompleteClass(ClassDeclaration* cls, ModuleDeclaration* module) {
  string parentName = ParentName(cls);
  ClassDeclaration* parent = parentName.Length() ? module->LookupClass(parentName) : nullptr;
  if (parent) ComputeInheritance(cls, parent, module);
  else ComputeBaseClass(cls);
}

// Storage: the parent's fields come first, so the own ones move behind.
void InheritStorage(ClassDeclaration* cls, ClassDeclaration* parent) {
  // Slots, not the parent's property list, count: a private property of an
  // ancestor isn't copied down but still has its slot.
  for (unsigned int i = 0; i < cls->CountProperties(); ++i) {
    PropertyDeclaration* property = cls->GetProperty(i);
    property->SetOffset(property->GetOffset() + parent->GetStorageSize());
    property->SetIndex(property->GetIndex() + parent->propertySlotCount);
  }
  cls->SetStorageSize(cls->GetStorageSize() + parent->GetStorageSize());
  cls->propertySlotCount += parent->propertySlotCount;
  unsigned int parentCount = parent->CountProperties();
  for (unsigned int i = 0; i < parentCount; ++i) {
    PropertyDeclaration* property = parent->GetProperty(i);
    if (property->GetScope() == ScopedDeclaration::kScopePrivate) continue;
    if (!cls->LookupProperty(property->GetName())) cls->AddProperty(property);
  }
}

// Events take the slots behind the parent's; interfaces of the parent
// stand first in the class's list.
void InheritEventsAndInterfaces(ClassDeclaration* cls, ClassDeclaration* parent) {
  unsigned int parentSlots = parent->GetEventTableSlotCount();
  for (unsigned int i = 0; i < cls->CountEvents(); ++i) cls->GetEvent(i)->SetDispatchID((int32_t)(parentSlots + i));
  cls->SetEventTableSlotCount(cls->CountEvents() + parentSlots);
  unsigned int interfaces = parent->CountImplementedInterfaces();
  for (unsigned int i = 0; i < interfaces; ++i) cls->InsertImplementedInterface(i, parent->GetImplementedInterface(i));
}

void InheritConstants(ClassDeclaration* cls, ClassDeclaration* parent) {
  unsigned int count = parent->CountConstants();
  for (unsigned int i = 0; i < count; ++i) {
    ConstantDeclaration* constant = parent->GetConstant(i);
    if (constant->GetScope() != ScopedDeclaration::kScopePrivate) cls->AddConstant(constant);
  }
}

void InheritFrom(ClassDeclaration* cls, ClassDeclaration* parent) {
  InheritStorage(cls, parent);
  InheritEventsAndInterfaces(cls, parent);
  InheritMethods(cls, parent);
  InheritConstants(cls, parent);
}

// Once per class: a class that has its parent is done, which is also what
// stops a loop of Inherits. Such a loop is left connected for the grammar
// to report and cut. The ancestors not yet done are connected walking up
// and completed walking down, so that a long chain costs no stack.
void ComputeInheritance(ClassDeclaration* cls, ClassDeclaration* parent, ModuleDeclaration* module) {
  SimpleVector<ClassDeclaration*> chain;
  while (parent && !cls->GetParent()) {
    cls->SetParent(parent);
    chain.push_back(cls);
    if (parent == cls || parent->GetParent()) break;
    string grandName = ParentName(parent);
    ClassDeclaration* grand = grandName.Length() ? module->LookupClass(grandName) : nullptr;
    if (!grand) {
      ComputeBaseClass(parent);
      break;
    }
    cls = parent;
    parent = grand;
  }
  for (unsigned long i = chain.size(); i-- > 0;) {
    ClassDeclaration* child = chain[i];
    if (child->GetParent() != child) InheritFrom(child, child->GetParent());
  }
}

template <class T>
bool IsPublic(T* item) {
  return item->GetScope() == ScopedDeclaration::kScopePublic;
}

}  // namespace

// ---------------------------------------------------------------------------
// Entries

FunctionDeclaration* MakeClassLookupFunction(ClassDeclaration* cls) {
  if (!cls) return nullptr;
  FunctionDeclaration* lookup = FunctionDeclaration::New();
  lookup->SetName(QualifyName(cls->GetName(), "__Lookup"));
  lookup->SetBaseName("__Lookup");
  lookup->SetType(IRDataType(kTypeClassRef));
  lookup->SetDispatchMethod(FunctionDeclaration::kDispatchNormal);
  lookup->SetScope(ScopedDeclaration::kScopePrivate);
  return lookup;
}

bool SignaturesMatchExactly(FunctionDeclaration* a, FunctionDeclaration* b) {
  if (a->GetType().Null() != b->GetType().Null()) return false;
  if (a->CountParameters() != b->CountParameters()) return false;
  for (unsigned int i = 1; i < a->CountParameters(); ++i) {
    ParameterDeclaration* pa = a->GetParameter(i);
    ParameterDeclaration* pb = b->GetParameter(i);
    if (pa->GetType() != pb->GetType() || pa->GetDesignator() != pb->GetDesignator()) return false;
  }
  if (a->GetBaseName() == "Operator_Convert" && b->GetBaseName() == "Operator_Convert")
    return a->GetType() == b->GetType();
  return true;
}

void ConnectClassesToParents(ModuleDeclaration* module) {
  for (unsigned int i = 0; i < module->CountClasses(); ++i) {
    ClassDeclaration* cls = module->GetClass(i);
    // Done already as another class's parent, or loaded with its parent set.
    if (!cls->GetParent()) CompleteClass(cls, module);
  }
  for (unsigned int i = 0; i < module->CountModules(); ++i) ConnectClassesToParents(module->GetModule(i));
}

void ExportPublicModuleDeclarations(ModuleDeclaration* module) {
  for (unsigned int m = 0; m < module->CountModules(); ++m) {
    ModuleDeclaration* inner = module->GetModule(m);
    ExportPublicModuleDeclarations(inner);
    for (unsigned int i = 0; i < inner->CountMethods(); ++i)
      if (IsPublic(inner->GetMethod(i))) module->AddMethod(inner->GetMethod(i));
    for (unsigned int i = 0; i < inner->CountClasses(); ++i)
      if (IsPublic(inner->GetClass(i))) module->AddClass(inner->GetClass(i));
    for (unsigned int i = 0; i < inner->CountProperties(); ++i)
      if (IsPublic(inner->GetProperty(i))) module->AddProperty(inner->GetProperty(i));
    for (unsigned int i = 0; i < inner->CountConstants(); ++i)
      if (IsPublic(inner->GetConstant(i))) module->AddConstant(inner->GetConstant(i));
  }
}

ModuleDeclaration* ExtractDeclarations(char const* source, bool& failed, ModuleDeclaration* prefix) {
  ModuleDeclaration* module = prefix ? prefix : ModuleDeclaration::New();
  InitLexer(source);
  ParseTopLevelDeclarations(module, failed);
  ConnectClassesToParents(module);
  ExportPublicModuleDeclarations(module);
  return module;
}

FunctionDeclaration* ExtractMethodDeclaration(string text, ClassDeclaration* owner) {
  InitLexer(text.CString());
  int token = GetToken();
  Scope scope = ScopedDeclaration::kScopePublic;
  if (IsScopeWord(token)) {
    scope = ScopeOfWord(token);
    token = GetToken();
  }
  if (token != kTokenSub && token != kTokenFunction) return nullptr;
  FunctionDeclaration* method = ParseMethodDeclaration(token == kTokenFunction, owner);
  method->SetScope(scope);
  return method;
}

PropertyDeclaration* ExtractPropertyDeclaration(string text) {
  InitLexer(text.CString());
  int token = GetToken();
  Scope scope = ScopedDeclaration::kScopePublic;
  if (IsScopeWord(token)) {
    scope = ScopeOfWord(token);
    token = GetToken();
  }
  if (token == kTokenDim) token = GetToken();
  if (token != kTokenIDENT) return nullptr;
  SimpleVector<PropertyDeclaration*> properties = ParsePropertyDeclaration();
  if (properties.size() == 0) return nullptr;
  for (unsigned long i = 1; i < properties.size(); ++i) delete properties[i];
  properties[0]->SetScope(scope);
  return properties[0];
}
