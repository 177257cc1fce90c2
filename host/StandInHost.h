// A stand-in for the host application: enough of a host for the engine's
// plug-in entry to load into, for script objects to be made, set and run,
// and for tests and the command-line tool to watch what the engine does.
//
// What the host is made of:
// - Strings are stringStorage records; a lock is a reference.
// - An object is one cleared block: word 0 its lock count, word 1 its class
//   (a VELDclassRefStruct* that is the host's class record), then the
//   instance data of each class of its chain, the root's first. The offset
//   of each class's data is written into its definition at registration.
// - Classes are registered by definition and found by name ignoring case.
//   "RuntimeException", "stackOverflowException", "OutOfBoundsException"
//   and the script library's other exceptions ("NilObjectException",
//   "IllegalCastException", "TypeMismatchException", "OutOfMemoryException")
//   are there from the start, so plug-in classes can name them as parents
//   and an unhandled script exception reaches the host under its own name.
// - Initializers run root first when an object is made; finalizers run most
//   derived first when its last lock goes.
// - Event handlers are set per object by event name; a handler takes the
//   object first, then the event's parameters.
//
// The engine caches each entry it resolved, so withholding an entry takes
// effect for the engine at its next VELDPluginMain(StandInResolve).
#pragma once

#include "engine/PluginMain.h"

// The resolver handed to VELDPluginMain.
void* StandInResolve(char const* name);

// Forgets everything but the built-in classes: registered classes, event
// handlers, withheld and added entries, the raised exception (unlocked), the
// counters; the version goes back to 4.5. Live objects stay alive.
void StandInHostReset();

// The resolver answers null for `entryName` until StandInProvide or a reset.
void StandInWithhold(char const* entryName);
void StandInProvide(char const* entryName);
// Makes the resolver answer `entry` for a name it doesn't know of itself,
// such as a library function's entry.
void StandInDefineEntry(char const* entryName, void* entry);

// The version the host reports to plug-ins.
void StandInSetVersion(double version);

// The host's own registration; false when the parent class isn't known.
bool StandInRegisterClass(VELDclassDefinition* definition);
bool StandInIsClassRegistered(char const* className);

// Objects alive in the host, plug-in and built-in classes alike.
long StandInLiveObjectCount();
long StandInLockCount(VELDobjectStruct* object);
// The name of the object's class, or "" for null.
char const* StandInClassName(VELDobjectStruct* object);
// True if the object's class is `className` or derives from it.
bool StandInIsA(VELDobjectStruct* object, char const* className);

// The last object raised through RuntimeRaiseException, null if none. The
// raise takes over the raiser's lock, which the host keeps until the next
// raise, StandInClearRaisedException or a reset.
VELDobjectStruct* StandInRaisedException();
long StandInRaiseCount();
void StandInClearRaisedException();

// Sets (or with null, removes) the handler of an event of `object`; false if
// the object's classes declare no event of that name.
bool StandInSetEventHandler(VELDobjectStruct* object, char const* eventName, void* handler);

// A new host string with one lock for the caller, tagged `encoding`.
VELDstringStruct* StandInString(char const* text, unsigned long encoding);
VELDstringStruct* StandInString(char const* text, long length, unsigned long encoding);

// Property access as the host's program makes it: through the plug-in's
// setter, or on the field itself where the row says -1. Setters lock what
// they store and release what they replace. False for an unknown or
// read-only property.
bool StandInSetIntegerProperty(VELDobjectStruct* object, char const* name, long value);
bool StandInSetStringProperty(VELDobjectStruct* object, char const* name, VELDstringStruct* value);
bool StandInSetObjectProperty(VELDobjectStruct* object, char const* name, VELDobjectStruct* value);
// Getters read the field; what they return is borrowed.
bool StandInGetIntegerProperty(VELDobjectStruct* object, char const* name, long* value);
VELDstringStruct* StandInGetStringProperty(VELDobjectStruct* object, char const* name);
VELDobjectStruct* StandInGetObjectProperty(VELDobjectStruct* object, char const* name);

// Calls a method of the object's class chain by name, with no argument or
// one integer argument as its declaration asks; false if there is none.
bool StandInCallMethod(VELDobjectStruct* object, char const* name, long argument = 0);

// What the engine asked of the host's threading and stack services.
long StandInYieldCount();
unsigned long StandInStackLimit();
unsigned long StandInStackCheckerValue();
