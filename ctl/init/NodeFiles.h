/// The files of each node, made from the answers: its settings, its packet filter and those of the
/// WireGuard tunnel.
#pragma once

#include "ctl/OutputFile.h"
#include "ctl/init/Answers.h"
#include "inspect/Paths.h"

namespace velarix::ctl
{

/// @param node whose file; the two differ in MODE and the two addresses alone
/// @return the whole file, each key with a comment from the table of the keys
std::string settingsText(const Answers& answers, const std::string& node);

/// @return the node's keeper.ini; the two differ in on_conflict, and have own and partner of [reachability] exchanged
std::string keeperSettingsText(const Answers& answers, const std::string& node);

/// The file's name, beside the settings. The unit velarix-ha-firewall loads it from there.
inline constexpr const char* kFirewallFile = "firewall.nft";

/// @return a file for `nft -f`: the shipped velarix-ha.nft with the pair's values in its defines
std::string firewallRules(const Answers& answers, const std::string& node);

/// Holds no secret and is made for both nodes. The private key is made on its own node and never
/// leaves it; the public ones are exchanged.
/// @return tunnel.conf of the node
std::string tunnelText(const Answers& answers, const std::string& node);

/// @return the line of a pre-shared key that the operator has added, to be kept; empty without one
std::string presharedKey(const std::filesystem::path& file);

/// @return this node's private key: the one that is there, or a new one
/// @throws Failure refused without wireguard-tools
std::string tunnelKey(const std::filesystem::path& directory);

/// What the interfaces are called now; both empty when they are not asked for.
struct InterfaceNames
{
	std::string service;
	std::string communication;
};

/// The names of this machine's interfaces: eth0 and eth1, which the agent reads, given by systemd.link(5)
/// files. They hold hardware addresses, so each node makes its own.
/// @return the .link files, and what makes udev try again when a name was taken; nothing
///         without names
/// @throws Failure usage or refused, with what to do instead
std::vector<NewFile> linkFiles(const InterfaceNames& names, const inspect::Paths& paths);

/// What the operator has to do: the lines of other files that name the interfaces, the
/// next steps, and the way back. Changes nothing.
/// @param files what `linkFiles` gave
void printRenaming(const InterfaceNames& names, const std::vector<NewFile>& files, const inspect::Paths& paths,
                   std::ostream& out);

} // namespace velarix::ctl
