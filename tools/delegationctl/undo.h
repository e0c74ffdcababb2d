// When a record of the journal may be taken back.
#pragma once

#include "admin/undo.h"

namespace delegationctl {

// What taking back the record of that number comes to. Throws no_record; changed_since, and no_user for assignees who
// are gone, both unless `force`; name_taken, refused, accounts or database.
NIMBO::QUAYPOST_SERVER::admin::UndoPlan RequireUndoable(const NIMBO::QUAYPOST_SERVER::admin::Journal& journal,
                                                        long long number, bool force);

}  // namespace delegationctl
