/// What must hold for the stored rows behind every call: two queries that give nothing then. The attacks in Python read
/// the first one from here.
#pragma once

/// What breaks the rules of the rows, input that was refused half-way or not. A group that is gone may keep links.
inline constexpr const char* kBroken = R"(
  select "table", rowid, parent from pragma_foreign_key_check
    where "table" <> 'group2delegation_table' or parent <> 'group_table'
  union all select 'unsupported', * from (select * from user2delegation_real_table
    except select * from user2delegation_table
    except select uid, delegationidx from user2group_table join group2delegation_table using (gid))
  union all select 'twice', type, data from delegation_entry_table group by type, data having count(*) > 1
  union all select 'type twice', delegationidx, type from delegation2delegation_entry_table
    join delegation_entry_table using (delegationentryidx) group by 2, 3 having count(*) > 1
  union all select 'out of range', idx, 0 from (select delegationidx as idx from delegation_table
    union select delegationentryidx from delegation_entry_table) where idx not between 1 and 2147483647
  union all select 'version', user_version, 0 from pragma_user_version where user_version <> 1)";

/// Who holds something else than the delegation of the highest priority among those held. Behind input that was refused
/// half-way people may be short of their due.
inline constexpr const char* kNotDue = R"(
  with held as (select uid, delegationidx, priority
      from (select * from user2delegation_table union
            select uid, delegationidx from user2group_table join group2delegation_table using (gid))
      join delegation_table using (delegationidx)),
    due as (select uid, delegationidx from held
      where priority = (select max(priority) from held as other where other.uid = held.uid))
  select * from (select * from user2delegation_real_table except select * from due) union
  select * from (select * from due except select * from user2delegation_real_table))";
