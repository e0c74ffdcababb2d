/// Tells a process from the one that forked it, without a system call each time.
#pragma once

namespace NIMBO::QUAYPOST_SERVER {

/// A number that stays the same in a process and is another one in every child that it forks.
unsigned int ThisProcess();

}  // namespace NIMBO::QUAYPOST_SERVER
