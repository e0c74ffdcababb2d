// The verbs, one file each: every Add... function declares a verb's options and what it does.
#pragma once

#include "command_line.h"

namespace delegationctl {

void AddList(CommandLine& line);
void AddShow(CommandLine& line);
void AddUsers(CommandLine& line);
void AddTabs(CommandLine& line);
void AddHistory(CommandLine& line);
void AddReview(CommandLine& line);
void AddCan(CommandLine& line);
void AddWhoCan(CommandLine& line);
void AddExplain(CommandLine& line);
void AddCreate(CommandLine& line);
void AddUpdate(CommandLine& line);
void AddDelete(CommandLine& line);
void AddAssign(CommandLine& line);
void AddUnassign(CommandLine& line);
void AddExport(CommandLine& line);
void AddDiff(CommandLine& line);
void AddApply(CommandLine& line);
void AddRefresh(CommandLine& line);
void AddUndo(CommandLine& line);
void AddCheck(CommandLine& line);
void AddRpc(CommandLine& line);

}  // namespace delegationctl
