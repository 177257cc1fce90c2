// The template-free StringMap<unsigned long> entries.
#include "foundation/StringMap.h"

StringMap<unsigned long>* newStringMap() { return new StringMap<unsigned long>; }

void disposeStringMap(StringMap<unsigned long>* map) { delete map; }

void addStringMapEntry(StringMap<unsigned long>* map, string const& key, unsigned long value) {
  if (map) map->AddEntry(key, value);
}

unsigned long getStringMapEntry(StringMap<unsigned long>* map, string const& key) {
  unsigned long value = 0;
  if (!map || !map->GetEntry(key, value)) return 0;
  return value;
}

void deleteStringMapEntry(StringMap<unsigned long>* map, string const& key) {
  if (map) map->DeleteEntry(key);
}

bool iterateStringMap(StringMap<unsigned long>* map,
                      bool (*callback)(string key, unsigned long value, long context),
                      long context) {
  return map ? map->Iterate(callback, context) : true;
}

StringMapIterator<unsigned long>* getStringMapIterator(StringMap<unsigned long>* map) {
  return map ? map->NewIterator() : nullptr;
}

bool smIteratorNext(StringMapIterator<unsigned long>* it) { return it && it->Next(); }

void smIteratorDelete(StringMapIterator<unsigned long>* it) {
  if (it) it->Delete();
}

unsigned long smIteratorValue(StringMapIterator<unsigned long>* it) {
  unsigned long value = 0;
  if (!it || !it->Value(value)) return 0;
  return value;
}

string smIteratorKey(StringMapIterator<unsigned long>* it) { return it ? it->Key() : string(); }

void smDisposeIterator(StringMapIterator<unsigned long>* it) { delete it; }
