/* A database, a table and two records, through the C interface.
 *
 * The first start writes two lines to standard error: there is no file yet, and no backup of one to restore. */
#include <kaldb/kaldb.h>

#include <stdio.h>
#include <string.h>

typedef struct Package {
    char name[48];
    uint32_t size;
} Package;

/* The order of the table. Stored records are not aligned; memcpy reads a field of another type than char. */
static int32_t byName(const void* probe, const void* stored)
{
    return strncmp((const char*)probe, (const char*)stored, sizeof(((Package*)0)->name));
}

static uint32_t print(void* context, const void* record)
{
    Package package;
    memcpy(&package, record, sizeof package);
    printf("%s %u\n", package.name, (unsigned)package.size);
    ++*(unsigned*)context;
    return KALDB_SUCCESS; /* anything else stops the walk */
}

static uint32_t openTable(KALDBDatabase* db, KALDBTable** table)
{
    const KALDBTableInfo info = {.name = u"Packages", .recordSize = sizeof(Package)};
    const KALDBChainCallbacks callbacks = {.compare = byName};
    const uint32_t status = kaldbTableCreate(db, &info);
    if (status != KALDB_SUCCESS && status != KALDB_ALREADY_EXISTS)
        return status;
    return kaldbTableOpen(db, u"Packages", &callbacks, table);
}

static uint32_t work(KALDBTable* table)
{
    Package packages[] = {{"coreutils", 18062}, {"bash", 7164}};
    unsigned count = 0;
    for (size_t i = 0; i < sizeof packages / sizeof packages[0]; ++i) {
        const uint32_t status = kaldbTableInsertRecord(table, &packages[i], 0, NULL);
        if (status == KALDB_ALREADY_EXISTS)
            printf("%s is there already\n", packages[i].name);
        else if (status != KALDB_SUCCESS)
            return status;
    }
    const uint32_t status = kaldbTableEnumWithCallback(table, &count, print);
    printf("%u packages\n", count);
    return status;
}

int main(int argc, char** argv)
{
    char16_t path[1024] = u"packages.kaldb";
    KALDBDatabase* db = NULL;
    KALDBTable* table = NULL;
    uint32_t isNew = 0;
    if (argc > 1 && kalMultiByteToWideChar(argv[1], KAL_NUL_TERMINATED, path, 1024) == KAL_CONVERSION_FAILED)
        return 2;

    uint32_t status = kaldbInitialize(path, 8 << 20, &db, &isNew);
    if (status == KALDB_SUCCESS) {
        printf("%s database\n", isNew ? "new" : "existing");
        status = openTable(db, &table);
        if (status == KALDB_SUCCESS) {
            status = work(table);
            kaldbTableClose(table);
        }
        /* Closing writes everything out and makes the backup: a full disk is reported here. */
        const uint32_t closed = kaldbDeinitialize(db);
        if (status == KALDB_SUCCESS)
            status = closed;
    }
    if (status != KALDB_SUCCESS)
        fprintf(stderr, "failed with status %u; see docs/errors.md\n", (unsigned)status);
    return status != KALDB_SUCCESS;
}
