package com.quelmar.nubo.kestro.test;

import com.sun.net.httpserver.HttpExchange;
import com.sun.net.httpserver.HttpHandler;
import com.sun.net.httpserver.HttpServer;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.ServerSocket;
import java.nio.charset.Charset;

/**
 * A loopback HTTP server for the JVM tests of the HTTP bridge, on
 * 127.0.0.1 only. "/echo" answers 200 with the request's method, its
 * "X-Test" header, its content type and its body; "/missing" answers 404
 * with a short text.
 */
public final class HttpTestServer {
    private static final Charset UTF8 = Charset.forName("UTF-8");
    private static HttpServer server;
    private static int requests;

    private HttpTestServer() {}

    /** Starts the server on a free port of 127.0.0.1 and returns it. */
    public static synchronized int start() throws IOException {
        stop();
        requests = 0;
        server = HttpServer.create(new InetSocketAddress(InetAddress.getByName("127.0.0.1"), 0), 8);
        server.createContext("/echo", new HttpHandler() {
            @Override
            public void handle(HttpExchange ex) throws IOException {
                byte[] in = readAll(ex.getRequestBody());
                String text = "method=" + ex.getRequestMethod()
                        + ";x-test=" + ex.getRequestHeaders().getFirst("X-Test")
                        + ";type=" + ex.getRequestHeaders().getFirst("Content-Type")
                        + ";body=" + new String(in, UTF8);
                reply(ex, 200, text);
            }
        });
        server.createContext("/missing", new HttpHandler() {
            @Override
            public void handle(HttpExchange ex) throws IOException {
                readAll(ex.getRequestBody());
                reply(ex, 404, "not here");
            }
        });
        server.start();
        return server.getAddress().getPort();
    }

    public static synchronized void stop() {
        if (server != null) server.stop(0);
        server = null;
    }

    /** Requests answered since start. */
    public static synchronized int requests() {
        return requests;
    }

    /** A port of 127.0.0.1 that nothing listens on (just released). */
    public static int closedPort() throws IOException {
        ServerSocket s = new ServerSocket(0, 1, InetAddress.getByName("127.0.0.1"));
        int port = s.getLocalPort();
        s.close();
        return port;
    }

    private static void reply(HttpExchange ex, int code, String text) throws IOException {
        byte[] out = text.getBytes(UTF8);
        // Counted before the answer leaves: the client may look at the
        // count as soon as it has the response.
        synchronized (HttpTestServer.class) {
            requests++;
        }
        ex.sendResponseHeaders(code, out.length);
        OutputStream os = ex.getResponseBody();
        os.write(out);
        os.close();
    }

    private static byte[] readAll(InputStream in) throws IOException {
        ByteArrayOutputStream buf = new ByteArrayOutputStream();
        byte[] chunk = new byte[4096];
        int n;
        while ((n = in.read(chunk)) > 0) buf.write(chunk, 0, n);
        in.close();
        return buf.toByteArray();
    }
}
