/// The virtual IP as this server's interface listing shows it; raising and
/// dropping it are operations of Utill.
#pragma once

/// @return true when the text of "AGENT.VIRTUAL_IP" occurs in a piece (at most
///         127 bytes) of a line of "ifconfig". It is a plain substring search:
///         an address that another one begins with counts as present.
bool isMyVirtualIPWorking();
