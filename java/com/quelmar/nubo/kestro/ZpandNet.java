package com.quelmar.nubo.kestro;

import java.net.InetAddress;
import java.net.NetworkInterface;
import java.net.SocketException;
import java.util.Collections;
import java.util.Enumeration;

/** Network facts the library asks the platform for. */
public final class ZpandNet {
    private ZpandNet() {}

    /**
     * The device's local address as text: the first address that is not a
     * loopback one, of the first interface that is up and not a loopback
     * interface, in the order the system lists them (an IPv6 address
     * without its scope suffix). Null when there is none.
     */
    public static String getLocalIP() {
        Enumeration<NetworkInterface> all;
        try {
            all = NetworkInterface.getNetworkInterfaces();
        } catch (SocketException e) {
            return null;
        }
        if (all == null) return null;
        for (NetworkInterface nif : Collections.list(all)) {
            try {
                if (!nif.isUp() || nif.isLoopback()) continue;
            } catch (SocketException e) {
                continue;
            }
            for (InetAddress addr : Collections.list(nif.getInetAddresses())) {
                if (addr.isLoopbackAddress()) continue;
                String text = addr.getHostAddress();
                int scope = text.indexOf('%');
                return scope < 0 ? text : text.substring(0, scope);
            }
        }
        return null;
    }
}
