/*
 * The interface once more, as callers rely on it: every operation with its parameters. A C11 or C++20 file that
 * includes the public headers and then this one compiles as long as no declaration has changed.
 */
#ifndef KALDB_TESTS_INTERFACE_H
#define KALDB_TESTS_INTERFACE_H

#include <kaldb/kaldb.h>
#include <kallib/kallib.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- support library: 32 operations -------------------------------------------------- */

void* kalMemAllocate(uint32_t size, const char* file, uint32_t line);
void kalMemFree(void* block);
void* kalHandleAllocate(uint32_t size, const char* file, uint32_t line);
void kalHandleFree(void* handle);

/* KALFile: opaque. Offsets and sizes are 64-bit; a single transfer's length is u32. */
uint32_t kalFileOpenW(const char16_t* path, KALFile** file, uint32_t mode);
uint32_t kalFileClose(KALFile* file);
uint32_t kalFileRead(KALFile* file, void* buffer, uint32_t* length);
uint32_t kalFileWrite(KALFile* file, const void* buffer, uint32_t* length);
uint32_t kalFileSeek(KALFile* file, uint64_t offset);
uint32_t kalFileGetSize(KALFile* file, uint64_t* size);
uint32_t kalFileFlush(KALFile* file);
uint32_t kalFileCopyW(const char16_t* source, const char16_t* destination);
uint32_t kalFileDeleteW(const char16_t* path);
uint32_t kalFileExistsW(const char16_t* path, uint32_t* exists);
uint32_t kalFileRename(const char16_t* oldPath, const char16_t* newPath);

/* KALEnumerator: opaque. KALEnumeratorCallbacks: struct {move, unsupported, getItem, free}. */
uint32_t kalEnumeratorCreate(const KALEnumeratorCallbacks* callbacks, void* userData, KALEnumerator** enumerator);
uint32_t kalEnumeratorMoveFirst(KALEnumerator* enumerator);
uint32_t kalEnumeratorMoveNext(KALEnumerator* enumerator);
uint32_t kalEnumeratorGetItem(KALEnumerator* enumerator, void* buffer, uint32_t size);
uint32_t kalEnumeratorGetUserData(KALEnumerator* enumerator, void** userData);
uint32_t kalEnumeratorFree(KALEnumerator* enumerator);

uint32_t kalMultiByteChars(const char* text);
int32_t kalMultiByteCompare(const char* first, const char* second);
int32_t kalMultiByteICompare(const char* first, const char* second);
uint32_t kalMultiByteToWideChar(const char* source, uint32_t sourceLength, char16_t* destination,
                                uint32_t destinationChars);
uint32_t kalWideCharToMultiByte(const char16_t* source, uint32_t sourceLength, char* destination,
                                uint32_t destinationBytes);

uint32_t kalError(const char16_t* format, ...);
uint32_t kalWarning(const char16_t* format, ...);
uint32_t kalDebug(const char16_t* format, ...);
const char16_t* kalErrorGetString(uint32_t status);
uint32_t kalStatsInitialize(uint32_t count, const char16_t* const* names, KALStats** stats);
uint32_t kalStatsDeinitialize(KALStats* stats);

/* One addition, for hosts and tests: where log lines go. Levels: 0 error, 1 warning, 2 debug,
   3 trace (only a build with tracing produces level 3). The text is the finished UTF-16 line.
   A null sink restores the default: error and warning to standard error, the others dropped. */
typedef void (*KALLogSinkCheck)(uint32_t level, const char16_t* text, void* context);
void kalLogSetSink(KALLogSinkCheck sink, void* context);

/* ---- database: 135 operations -------------------------------------------------------- */

/* frame (5) and identifiers (5); KALDBDatabase: opaque */
uint32_t kaldbInitialize(const char16_t* path, uint32_t cacheBytes, KALDBDatabase** handle, uint32_t* isNew);
uint32_t kaldbDeinitialize(KALDBDatabase* handle);
uint32_t kaldbBackupDatabaseWhileRunning(KALDBDatabase* handle);
uint32_t kaldbForgetHandle(void* handle);
const char16_t* kaldbGetErrorString(uint32_t code);

uint32_t kaldbIDZero(KALDBID* id);
uint32_t kaldbIDIncrement(KALDBID* id);
uint32_t kaldbIDCompare(const KALDBID* first, const KALDBID* second, int32_t* result);
uint32_t kaldbIDIsEqual(const KALDBID* first, const KALDBID* second, uint32_t* result);
uint32_t kaldbIDCopy(KALDBID* destination, const KALDBID* source);

/* tables (19); KALDBTable: opaque.
   KALDBTableInfo: struct {char16_t name[32]; uint32_t recordSize, flags, reserved1, reserved2;}
   KALDBChainCallbacks: struct {
     KALBTreeCompare compare;            int32_t  (*)(const void* probe, const void* stored)
     KALDBCheckConstraints checkConstraints; uint32_t (*)(uint32_t mode, const void* record, uint32_t* field)
     KALDBIndexUpdate indexUpdate;       uint32_t (*)(const KALDBIndexRecord* from, const KALDBIndexRecord* to,
   uintptr_t context) KALDBRecordEvent recordEvent;       uint32_t (*)(uint32_t event, uint32_t status, void* record)
     void (*reserved[4])(void);
   } */
uint32_t kaldbTableCreate(KALDBDatabase* db, const KALDBTableInfo* info);
uint32_t kaldbTableExists(const char16_t* name, uint32_t* exists);
uint32_t kaldbTableDrop(KALDBDatabase* db, const char16_t* name);
uint32_t kaldbTableOpen(KALDBDatabase* db, const char16_t* name, const KALDBChainCallbacks* callbacks,
                        KALDBTable** table);
uint32_t kaldbTableClose(KALDBTable* table);
uint32_t kaldbTableGetInfo(KALDBTable* table, KALDBTableInfo* info);
uint32_t kaldbTableEnumerate(KALDBDatabase* db, KALEnumerator** enumerator);
uint32_t kaldbTableInsertRecord(KALDBTable* table, void* record, uint32_t unused, KALDBID* id);
uint32_t kaldbTableUpdateRecord(KALDBTable* table, void* record);
uint32_t kaldbTableDeleteRecord(KALDBTable* table, void* key, uint32_t unused, KALDBID* id);
uint32_t kaldbTableDeleteRecordByID(KALDBTable* table, const KALDBID* id);
uint32_t kaldbTableQueryID(KALDBTable* table, const KALDBID* id, void* record, uint32_t size);
uint32_t kaldbTableQueryPK(KALDBTable* table, const void* key, void* record, uint32_t size);
uint32_t kaldbTableQueryPartialPK(KALDBTable* table, uint32_t readOnly, const void* key, KALBTreeCompare compare,
                                  KALEnumerator** enumerator);
uint32_t kaldbTableUpdateCurrentRecord(KALDBTable* table, KALEnumerator* enumerator, void* record);
uint32_t kaldbTableDeletePartialPK(KALDBTable* table, const void* key, KALBTreeCompare compare);
uint32_t kaldbTableDeleteCurrentRecord(KALDBTable* table, KALEnumerator* enumerator);
uint32_t kaldbTableQuery(KALDBTable* table, const void* key);
uint32_t kaldbTableEnumWithCallback(KALDBTable* table, void* context,
                                    KALDBEnumCallback callback); /* uint32_t (*)(void* context, const void* record) */

/* binary tables (4). KALDBBinaryRecord: struct {void* data; uint32_t totalSize, length, nextPage; uint16_t nextIndex;}
 */
uint32_t kaldbBinaryTableInsertRecord(KALDBTable* table, const KALDBBinaryRecord* record, KALDBIndexRecord* locator);
uint32_t kaldbBinaryTableDeleteRecord(KALDBTable* table, const KALDBIndexRecord* locator);
uint32_t kaldbBinaryTableUpdateRecord(KALDBTable* table, const KALDBIndexRecord* locator,
                                      const KALDBBinaryRecord* record);
uint32_t kaldbBinaryTableGetRecord(KALDBTable* table, const KALDBIndexRecord* locator, KALDBBinaryRecord* record);

/* variants (14) and their store (6). KALDBVariant: 64 bytes on every platform; `data` shares the
   first bytes of `value` (anonymous union at offset 40). */
uint32_t kaldbVariantInitialize(uint32_t inlineSize, KALDBVariant* variant);
uint32_t kaldbVariantDeinitialize(KALDBVariant* variant);
uint32_t kaldbVariantEmpty(KALDBVariant* variant);
uint32_t kaldbVariantAllocate(KALDBVariant* variant);
uint32_t kaldbVariantSet(KALDBVariant* variant, uint32_t type, const void* data, uint32_t size);
uint32_t kaldbVariantSetID(KALDBVariant* variant, const KALDBID* id);
uint32_t kaldbVariantSetPrimitive(KALDBVariant* variant, uint32_t type, const void* data);
uint32_t kaldbVariantSetString(KALDBVariant* variant, uint32_t type, const void* string);
uint32_t kaldbVariantSetBinary(KALDBVariant* variant, uint32_t type, const void* data, uint32_t size);
uint32_t kaldbVariantGetType(const KALDBVariant* variant, uint32_t* type);
uint32_t kaldbVariantGetSize(const KALDBVariant* variant, uint32_t* size);
uint32_t kaldbVariantGetID(const KALDBVariant* variant, KALDBID* id);
uint32_t kaldbVariantGetData(const KALDBVariant* variant, void* buffer, uint32_t* size);
uint32_t kaldbVariantGetDataPointer(const KALDBVariant* variant, const void** data);

uint32_t kaldbInitBinaryTable(KALDBDatabase* db);
uint32_t kaldbDeinitBinaryTable(KALDBDatabase* db);
uint32_t kaldbVariantInsertRecord(KALDBVariant* variant);
uint32_t kaldbVariantGetRecord(KALDBVariant* variant);
uint32_t kaldbVariantDeleteRecord(KALDBVariant* variant);
uint32_t kaldbVariantUpdateRecord(KALDBVariant* variant);

/* variable strings (12) and their store (6). KALDBVarString: the 32-byte header; the inline area
   of `capacity` bytes follows it directly in the caller's memory. */
uint32_t kaldbVarStringAllocate(uint32_t capacity, KALDBVarString* string);
uint32_t kaldbVarStringCreate(uint32_t capacity, KALDBVarString* string, const char16_t* text);
uint32_t kaldbVarStringDelete(KALDBVarString* string);
uint32_t kaldbVarStringSet(KALDBVarString* string, const char16_t* text);
uint32_t kaldbVarStringGetLength(const KALDBVarString* string, uint32_t* length);
uint32_t kaldbVarStringGet(const KALDBVarString* string, const char** text);
const char* kaldbVarStringGetPSZ(const KALDBVarString* string);
uint32_t kaldbVarStringCopy(const KALDBVarString* string, char16_t* buffer, uint32_t chars);
uint32_t kaldbVarStringDup(KALDBVarString* destination, const KALDBVarString* source);
uint32_t kaldbVarStringCompare(const KALDBVarString* first, const KALDBVarString* second, int32_t* result);
uint32_t kaldbVarStringICompare(const KALDBVarString* first, const KALDBVarString* second, int32_t* result);
uint32_t kaldbVarStringIComparePSZ(const KALDBVarString* string, const char16_t* text, int32_t* result);

uint32_t kaldbInitVarStringTable(KALDBDatabase* db);
uint32_t kaldbDeinitVarStringTable(KALDBDatabase* db);
uint32_t kaldbVarStringInsertRecord(KALDBVarString* string);
uint32_t kaldbVarStringGetRecord(KALDBVarString* string);
uint32_t kaldbVarStringDeleteRecord(KALDBVarString* string);
uint32_t kaldbVarStringUpdateRecord(KALDBVarString* string);

/* validator (2) */
uint32_t kaldbValidateFile(const char16_t* path, uint32_t unused, uint32_t* errors);
uint32_t kaldbValidatePages(const char16_t* path, uint32_t unused, uint32_t* errors);

/* page manager (21); KALPageManager: opaque */
uint32_t kalPageManagerInitialize(const char16_t* path, uint32_t cacheBytes, KALPageManager** manager,
                                  uint32_t* created);
uint32_t kalPageManagerDeinitialize(KALPageManager* manager);
uint32_t kalPageManagerLoadPage(KALPageManager* manager, uint32_t lockType, uint32_t page, void** body);
uint32_t kalPageManagerCreatePage(KALPageManager* manager, uint32_t lockType, uint32_t* page, void** body);
uint32_t kalPageManagerUnloadPage(KALPageManager* manager, void* body);
uint32_t kalPageManagerUnlockPage(KALPageManager* manager, uint32_t page);
uint32_t kalPageManagerUnreferencePage(KALPageManager* manager, void* body);
uint32_t kalPageManagerReferencePage(KALPageManager* manager, void* body);
uint32_t kalPageManagerSetPageDirty(KALPageManager* manager, void* body);
uint32_t kalPageManagerFlushPage(KALPageManager* manager, void* body);
uint32_t kalPageManagerFlushAllPages(KALPageManager* manager);
uint32_t kalPageManagerGetPageSize(KALPageManager* manager, uint32_t* size);
uint32_t kalPageManagerGetUsablePageSize(KALPageManager* manager, uint32_t* size);
uint32_t kalPageManagerGetPageCount(KALPageManager* manager, uint32_t* count);
uint32_t kalPageManagerGetLocation(KALPageManager* manager, const char16_t** path);
uint32_t kalPageManagerGetStartPage(KALPageManager* manager, uint32_t* page);
uint32_t kalPageManagerSetStartPage(KALPageManager* manager, uint32_t page);
uint32_t kalPageManagerBackup(const char16_t* path);
uint32_t kalPageManagerBackupWhileRunning(KALPageManager* manager);
uint32_t kalPageManagerRestore(const char16_t* path);
uint32_t kalPageManagerFileIsDirty(const char16_t* path, uint32_t* dirty);

/* page tracker (7); KALPageTracker: opaque */
uint32_t kalPageTrackerInitialize(uint32_t recordCount, uint32_t unused, KALPageTracker** tracker);
uint32_t kalPageTrackerDeinitialize(KALPageTracker* tracker);
uint32_t kalPageTrackerLockPage(KALPageTracker* tracker, uint32_t page, uint32_t lockType);
uint32_t kalPageTrackerUnlockPage(KALPageTracker* tracker, uint32_t page);
uint32_t kalPageTrackerGetPageLockType(KALPageTracker* tracker, uint32_t page, uint32_t* lockType);
uint32_t kalPageTrackerGetPageLockCount(KALPageTracker* tracker, uint32_t page, uint32_t* count);
uint32_t kalPageTrackerIsPageLocked(KALPageTracker* tracker, uint32_t page, uint32_t* locked);

/* B-tree page (20); KALBTreePage: the 32-byte header, slots and items behind it */
uint32_t kalBTreeFormat(KALBTreePage* page, uint32_t size, uint32_t itemSize);
uint32_t kalBTreeInsertItem(KALBTreePage* page, const void* item, KALBTreeCompare compare, uint16_t* index);
uint32_t kalBTreeUpdateItem(KALBTreePage* page, const void* item, KALBTreeCompare compare);
uint32_t kalBTreeDeleteItem(KALBTreePage* page, const void* key, KALBTreeCompare compare, uint16_t* index);
uint32_t kalBTreeDeleteIndex(KALBTreePage* page, uint16_t index, KALBTreeCompare compare);
uint32_t kalBTreeGetIndex(KALBTreePage* page, uint16_t index, void** item);
uint32_t kalBTreeGetSmallest(KALBTreePage* page, void** item, uint16_t* index);
uint32_t kalBTreeSearchPrimaryKey(KALBTreePage* page, const void* key, KALBTreeCompare compare, void** item);
uint32_t kalBTreeCompareItem(KALBTreePage* page, const void* key, KALBTreeCompare compare, int32_t* position);
uint32_t kalBTreeCanBeHere(KALBTreePage* page, const void* key, KALBTreeCompare compare, int32_t* position);
uint32_t kalBTreeGetCount(KALBTreePage* page, uint32_t* count);
uint32_t kalBTreeGetMaxCount(KALBTreePage* page, uint32_t* count);
uint32_t kalBTreeIsFull(KALBTreePage* page, uint32_t* full);
uint32_t kalBTreeEnumerate(KALBTreePage* page, KALBTreePage** pageRef, KALEnumerator** enumerator);
uint32_t kalBTreeSearchPartialKey(KALBTreePage* page, const void* key, KALBTreeCompare compare, KALBTreePage** pageRef,
                                  KALEnumerator** enumerator);
uint32_t kalBTreeGetByEnumerator(KALBTreePage* page, KALEnumerator* enumerator, void** item);
uint32_t kalBTreeShouldSplit(KALBTreePage* page, uint32_t* flag);
uint32_t kalBTreeSplit(KALBTreePage* source, KALBTreePage* destination, uint32_t fromSmallest, KALBTreeCompare compare);
uint32_t kalBTreeBalance(KALBTreePage* page);
void kalBTreeDump(KALBTreePage* page);

/* binary page (8) */
uint32_t kaldbBinaryPageFormat(KALDBBinaryPage* page, uint32_t size, uint32_t slotDataSize);
uint32_t kaldbBinaryPageInsertItem(KALDBBinaryPage* page, const KALDBBinaryRecord* record, uint16_t* index);
uint32_t kaldbBinaryPageGetItem(KALDBBinaryPage* page, uint16_t index, KALDBBinaryRecord* record);
uint32_t kaldbBinaryPageUpdateItem(KALDBBinaryPage* page, uint16_t index, const KALDBBinaryRecord* record);
uint32_t kaldbBinaryPageDeleteItem(KALDBBinaryPage* page, uint16_t index);
uint32_t kaldbBinaryPageIsFull(KALDBBinaryPage* page, uint32_t* full);
uint32_t kaldbBinaryPageGetCount(KALDBBinaryPage* page, uint32_t* count);
uint32_t kaldbBinaryPageGetMaxCount(KALDBBinaryPage* page, uint32_t* count);

/* diagnostics (6) */
void pmTracePageManager(KALPageManager* manager);
void pmTraceFilePages(KALPageManager* manager);
void pmTraceCachePages(KALPageManager* manager);
uint32_t pmAreMemPagesLocked(KALPageManager* manager);
uint32_t pmIsPageLocked(KALPageManager* manager, void* body);
void kaldbTracePageManager(void);

#ifdef __cplusplus
}
#endif
#endif
