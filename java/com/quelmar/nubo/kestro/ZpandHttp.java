package com.quelmar.nubo.kestro;

import java.io.ByteArrayOutputStream;
import java.io.FileInputStream;
import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.net.ConnectException;
import java.net.HttpURLConnection;
import java.net.MalformedURLException;
import java.net.SocketTimeoutException;
import java.net.URL;
import java.nio.charset.Charset;
import java.util.LinkedHashMap;
import java.util.Map;

/**
 * One HTTP request/response exchange for the library's HTTP bridge, on
 * {@link HttpURLConnection}. The library creates one object per connection,
 * calls {@link #open}, then any of the setters, then {@link #connect}, which
 * runs the request on a worker thread and reports its progress through the
 * native {@link #notifyStatus} with the connection id and one of these
 * statuses:
 *
 * <ul>
 *   <li>{@link #STATUS_CONNECTED} (1): the connection is made and the request
 *       is being sent;
 *   <li>100..599: the response's HTTP status code, once its headers arrived;
 *   <li>{@link #STATUS_COMPLETE} (2): the whole response body is read and
 *       {@link #getBody} returns it (the code was reported just before);
 *   <li>{@link #STATUS_REFUSED} (-1): the connection could not be made
 *       (refused, unreachable, unknown host);
 *   <li>{@link #STATUS_TIMEOUT} (-2): the connect or read time-out passed;
 *   <li>{@link #STATUS_IO_ERROR} (-3): any other failure while sending or
 *       receiving (also a body file that cannot be read);
 *   <li>{@link #STATUS_BAD_REQUEST} (-4): the URL or the configuration is not
 *       usable, or connect was called twice.
 * </ul>
 *
 * After {@link #close} or {@link #disconnect} no further status is reported.
 */
public final class ZpandHttp {
    public static final int STATUS_CONNECTED = 1;
    public static final int STATUS_COMPLETE = 2;
    public static final int STATUS_REFUSED = -1;
    public static final int STATUS_TIMEOUT = -2;
    public static final int STATUS_IO_ERROR = -3;
    public static final int STATUS_BAD_REQUEST = -4;

    private static final Charset UTF8 = Charset.forName("UTF-8");

    private int id;
    private String url;
    private boolean followRedirects;
    private boolean keepAlive;
    private String method;
    private int connectTimeout = 15000;
    private int readTimeout = 30000;
    private final Map<String, String> headers = new LinkedHashMap<String, String>();
    private String contentType;
    private String bodyText;
    private String bodyFile;

    private Thread worker;
    private HttpURLConnection conn;
    private String body;
    private boolean closed;

    public ZpandHttp() {}

    /**
     * Keeps the URL for the request. The first option asks that redirects be
     * followed (without it a 3xx response is the answer); the second keeps
     * the connection open for reuse by later requests (without it the
     * request carries "Connection: close"). Returns whether the URL parses.
     */
    public synchronized boolean open(int id, String url, boolean option1, boolean option2) {
        this.id = id;
        this.url = url;
        this.followRedirects = option1;
        this.keepAlive = option2;
        try {
            new URL(url);
            return true;
        } catch (MalformedURLException | NullPointerException e) {
            return false;
        }
    }

    /** Stops the exchange; nothing is reported afterwards. */
    public void close() {
        disconnect();
    }

    /** Sets a request header (a later value for the same name replaces it). */
    public synchronized void setProperty(String name, String value) {
        if (name != null && value != null) headers.put(name, value);
    }

    /**
     * Sets one setting: "method" (GET, POST, PUT, DELETE, HEAD, OPTIONS;
     * without it GET, or POST when a body or file is set), "connectTimeout"
     * and "readTimeout" in milliseconds (0: no limit). Unknown names and
     * unusable values are ignored.
     */
    public synchronized void setConfig(String name, String value) {
        if (name == null || value == null) return;
        try {
            if (name.equals("method")) {
                method = value.trim().toUpperCase(java.util.Locale.ROOT);
            } else if (name.equals("connectTimeout")) {
                connectTimeout = Math.max(0, Integer.parseInt(value.trim()));
            } else if (name.equals("readTimeout")) {
                readTimeout = Math.max(0, Integer.parseInt(value.trim()));
            }
        } catch (NumberFormatException e) {
            // kept as it was
        }
    }

    /**
     * Sets the request body: text1 is its content type (null: none sent),
     * text2 the body itself (sent as UTF-8), or with isFile the path of a
     * file whose bytes are sent.
     */
    public synchronized void setBody(String text1, String text2, boolean isFile) {
        contentType = text1;
        if (isFile) {
            bodyFile = text2;
            bodyText = null;
        } else {
            bodyText = text2;
            bodyFile = null;
        }
    }

    /** Starts the request on a worker thread. */
    public synchronized void connect() {
        if (closed || worker != null) {
            report(STATUS_BAD_REQUEST);
            return;
        }
        worker = new Thread(new Runnable() {
            @Override
            public void run() {
                exchange();
            }
        }, "ZpandHttp-" + id);
        worker.setDaemon(true);
        worker.start();
    }

    /** Aborts the exchange; nothing is reported afterwards. */
    public void disconnect() {
        HttpURLConnection c;
        synchronized (this) {
            closed = true;
            c = conn;
        }
        if (c != null) c.disconnect();
    }

    /** The response body as text (UTF-8), null before it is complete. */
    public synchronized String getBody() {
        return body;
    }

    private static native void notifyStatus(int id, int status);

    private void report(int status) {
        synchronized (this) {
            if (closed && status != STATUS_BAD_REQUEST) return;
        }
        try {
            notifyStatus(id, status);
        } catch (UnsatisfiedLinkError e) {
            // No library bound: nobody to tell.
        }
    }

    private void exchange() {
        HttpURLConnection c;
        byte[] out;
        try {
            synchronized (this) {
                if (closed) return;
                c = (HttpURLConnection) new URL(url).openConnection();
                conn = c;
                c.setInstanceFollowRedirects(followRedirects);
                c.setConnectTimeout(connectTimeout);
                c.setReadTimeout(readTimeout);
                c.setUseCaches(false);
                out = requestBody();
                c.setRequestMethod(method != null ? method : out != null ? "POST" : "GET");
                for (Map.Entry<String, String> h : headers.entrySet()) {
                    c.setRequestProperty(h.getKey(), h.getValue());
                }
                if (!keepAlive) c.setRequestProperty("Connection", "close");
                if (out != null) {
                    c.setDoOutput(true);
                    if (contentType != null) c.setRequestProperty("Content-Type", contentType);
                    c.setFixedLengthStreamingMode(out.length);
                }
            }
        } catch (IOException | RuntimeException e) {
            report(e instanceof IOException && !(e instanceof MalformedURLException)
                            ? STATUS_IO_ERROR
                            : STATUS_BAD_REQUEST);
            return;
        }
        try {
            c.connect();
            report(STATUS_CONNECTED);
            if (out != null) {
                OutputStream os = c.getOutputStream();
                try {
                    os.write(out);
                } finally {
                    os.close();
                }
            }
            int code = c.getResponseCode();
            report(code);
            InputStream in = code >= 400 ? c.getErrorStream() : c.getInputStream();
            String text = in != null ? readAll(in) : "";
            synchronized (this) {
                body = text;
            }
            report(STATUS_COMPLETE);
        } catch (ConnectException e) {
            report(STATUS_REFUSED);
        } catch (java.net.UnknownHostException | java.net.NoRouteToHostException e) {
            report(STATUS_REFUSED);
        } catch (SocketTimeoutException e) {
            report(STATUS_TIMEOUT);
        } catch (IOException | RuntimeException e) {
            report(STATUS_IO_ERROR);
        } finally {
            if (!keepAlive) c.disconnect();
        }
    }

    private byte[] requestBody() throws IOException {
        if (bodyText != null) return bodyText.getBytes(UTF8);
        if (bodyFile == null) return null;
        InputStream in = new FileInputStream(bodyFile);
        try {
            return readBytes(in);
        } finally {
            in.close();
        }
    }

    private static byte[] readBytes(InputStream in) throws IOException {
        ByteArrayOutputStream buf = new ByteArrayOutputStream();
        byte[] chunk = new byte[8192];
        int n;
        while ((n = in.read(chunk)) > 0) buf.write(chunk, 0, n);
        return buf.toByteArray();
    }

    private static String readAll(InputStream in) throws IOException {
        try {
            return new String(readBytes(in), UTF8);
        } finally {
            in.close();
        }
    }
}
