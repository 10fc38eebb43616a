/// Yes/no probes of the network around this server.
///
/// Each ping probe sends ten echo requests to the configured address and is
/// true when at least one is answered: reachability, not quality. A probe never
/// throws; an error of the ping is logged and counts as no answer. With an
/// address that does not answer a probe takes about one second.
#pragma once

/// The partner's address on the communication network, "AGENT.PARTNER_IP".
bool partnerComunicationIPcheck();

/// This server's own communication network, seen by its gateway,
/// "AGENT.GATEWAY_IP", so that a lost partner can be
/// distinguished from own isolation.
bool myComunicationIPcheck();

/// The service address, "AGENT.VIRTUAL_IP".
bool serviceIPcheck();
