#!/bin/sh
# The WireGuard tunnel that carries the heartbeats. Installed as /usr/libexec/velarix-ha/tunnel.
#
#   tunnel start    makes the key if there is none, brings the tunnel up; may be repeated
#   tunnel reload   takes changed keys and settings into the running tunnel
#   tunnel refresh  runs for good: after a long cut, ends the wait for the next handshake; starts
#                   the tunnel again when its interface is gone
#
# There is no stop: without its tunnel a node takes its partner for dead.
set -eu
umask 077

directory=/usr/velarix/bin/ini
device=wg-ha
# The public keys of a tunnel that has worked: while they are these, "velarixctl check" lets the
# agent start without an answer.
proven=/var/lib/velarix-ha/tunnel-proven
# Without an answer for that long WireGuard has no session any more, and asks for one in
# growing intervals.
stale=${VELARIX_TUNNEL_STALE:-185}

die() {
	printf 'velarix-tunnel: %s\n' "$*" >&2
	exit 1
}

setting() {
	sed -n "s,^$1 *= *\\([0-9.]*\\).*,\\1,p" "$directory/tunnel.conf"
}

# The private key stays out of tunnel.conf, so that that file holds no secret, and out of every
# command line.
configuration() {
	echo '[Interface]'
	sed 's/^/PrivateKey = /' "$directory/tunnel.key"
	grep -v '^Address' "$directory/tunnel.conf"
	sed 's/^/PublicKey = /' "$directory/partner.pub"
}

make_key() {
	# The refresh may start the tunnel at the same time, and each would make a key.
	exec 9<"$directory/tunnel.conf"
	flock 9
	if [ ! -s "$directory/tunnel.key" ]; then
		wg genkey >"$directory/tunnel.key"
		# Its public key may be copied at once: a power cut must not bring another one.
		sync "$directory/tunnel.key"
	fi
	public=$(wg pubkey <"$directory/tunnel.key")
	if [ "$public" != "$(cat "$directory/tunnel.pub" 2>/dev/null)" ]; then
		# In one step: the operator or a script may copy it at this moment.
		printf '%s\n' "$public" >"$directory/tunnel.pub.$$"
		mv "$directory/tunnel.pub.$$" "$directory/tunnel.pub"
	fi
	[ -s "$directory/partner.pub" ] ||
		die "$directory/partner.pub is missing: copy tunnel.pub of the other node there (this one's is $(cat "$directory/tunnel.pub"))"
	exec 9<&-
}

is_up() {
	# Without a program: it is asked every second.
	while read -r name _; do
		[ "$name" != "$device:" ] || return 0
	done </proc/net/dev
	return 1
}

start() {
	make_key
	own=$(setting Address)
	partner=$(setting AllowedIPs)
	# On lo, since the agent ends when its address goes away with the device.
	ip address replace "$own/32" dev lo
	# When the device is gone heartbeats must not leave by a default route in the clear.
	ip route replace unreachable "$partner/32" metric 4278198272
	if ! is_up; then
		ip link add dev "$device" type wireguard 2>/dev/null || wireguard-go "$device" >/dev/null || is_up ||
			die "no WireGuard: the kernel has no such module, and wireguard-go is not installed or fails"
	fi
	configuration | wg syncconf "$device" /dev/stdin
	ip link set dev "$device" mtu 1420 up
	ip route replace "$partner/32" dev "$device" src "$own"
}

reload() {
	make_key
	configuration | wg syncconf "$device" /dev/stdin
}

# The keys are asked of the running tunnel: the files may have changed since.
prove() {
	# A handshake with a former key proves nothing.
	[ "$1" -gt "$(stat -c %Y "$directory/tunnel.key")" ] || return 0
	keys=$(wg show "$device" public-key && wg show "$device" peers) || return 0
	[ "$keys" != "$(cat "$proven" 2>/dev/null)" ] || return 0
	[ -d "${proven%/*}" ] || install -d -m 755 "${proven%/*}"
	printf '%s\n' "$keys" >"$proven.new" && mv "$proven.new" "$proven"
}

refresh() {
	while :; do
		is_up || "$0" start || sleep 5
		last=$(wg show "$device" latest-handshakes 2>/dev/null | cut -f 2)
		age=$(($(date +%s) - ${last:-0}))
		pause=1
		if [ "$age" -gt "$stale" ]; then
			# Unlike syncconf it sets the endpoint anew, which begins a handshake at once.
			! is_up || configuration | wg setconf "$device" /dev/stdin || :
		elif [ "$age" -ge 0 ]; then
			prove "$last" || :
			pause=$((stale + 1 - age))
		fi
		while [ "$pause" -gt 0 ] && is_up; do
			sleep 1
			pause=$((pause - 1))
		done
	done
}

case ${1:-} in
start | reload | refresh) "$1" ;;
*) die "usage: $0 {start|reload|refresh}" ;;
esac
