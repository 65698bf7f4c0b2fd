// Classifier data of earlier generations through the migration: what comes out is data like any other.
#include <array>

#include "Target.h"
#include "classifier/ClassifierException.h"
#include "classifier/ClassifierImpl.h"
#include "classifier/storage/Migration.h"
#include "support/RecordingCallback.h"
#include "util/database/DatabaseReader.h"

namespace storage = halvern::classifier::storage;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const util::Bytes old = fuzz::bytesOf(data, size);
    util::Bytes migrated;
    try {
        storage::migrate(old, migrated);
    } catch (const util::database::DatabaseReaderException&) {
        return 0;
    } catch (const storage::MigrationException&) {
        return 0;
    } catch (const halvern::classifier::ClassifierException&) {
        return 0;
    }
    if (old[0] == 5) {
        PROMISE(migrated == old);
        return 0;
    }
    util::Bytes again;
    storage::migrate(migrated, again);
    PROMISE(again == migrated);

    support::RecordingCallbackFactory callbacks;
    halvern::classifier::ClassifierImpl loaded(&callbacks, 1.0);
    loaded.setTrainingData(migrated);
    PROMISE(callbacks.reports.empty());
    util::Bytes saved;
    loaded.getTrainingData(saved);
    PROMISE(saved == migrated);
    // Loading old data does just this.
    loaded.setTrainingData(old);
    loaded.getTrainingData(saved);
    PROMISE(saved == migrated);
    return 0;
}
