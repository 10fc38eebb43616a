# shellcheck shell=sh
# What goes with the Debian package when it is purged, and with the RPM when it is removed: a
# part of their scripts.
find /usr/velarix/run -type l -lname /usr/libexec/velarix-ha/keeper -delete 2>/dev/null || :
find /etc/velarix-ha/notify.d -type l -lname '/usr/libexec/velarix-ha/notify/*' -delete 2>/dev/null || :
rm -rf /var/lib/velarix-ha
# The tunnel and the rules are left by a stop.
if command -v nft >/dev/null; then
	nft delete table inet velarix_tunnel 2>/dev/null || :
	nft delete table inet velarix 2>/dev/null || :
fi
file=/usr/velarix/bin/ini/tunnel.conf
if [ -e "$file" ] && command -v ip >/dev/null; then
	own=$(sed -n 's/^Address *= *\([0-9.]*\).*/\1/p' "$file" | head -n 1) || :
	partner=$(sed -n 's/^AllowedIPs *= *\([0-9.]*\).*/\1/p' "$file" | head -n 1) || :
	ip link delete wg-ha 2>/dev/null || :
	ip route del unreachable "$partner/32" metric 4278198272 2>/dev/null || :
	ip address del "$own/32" dev lo 2>/dev/null || :
fi
# While the keeper lives its locks are all by which it is found again.
pidof keeper >/dev/null 2>&1 || rm -rf /run/velarix-ha
rmdir /usr/velarix/run 2>/dev/null || :
