// A small HTTP/1.1 server on 127.0.0.1 for tests of clients: it answers each path with scripted
// raw bytes, over plain TCP or TLS with a certificate made on the spot, and records every request
// it read. Each connection gets one answer and is then closed.
#pragma once

#include <netinet/in.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace orvane::testing {

// A whole answer: the status line, the given fields, "Content-Length" and "Connection: close".
inline std::string httpResponse(int status, const std::string& body = {},
                                const std::vector<std::string>& fields = {}) {
    std::string out = "HTTP/1.1 " + std::to_string(status) + " Scripted\r\n";
    for (const auto& field : fields) out += field + "\r\n";
    return out + "Content-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
}

// The same with a chunked body, in chunks of at most `chunk` bytes, and its closing chunk.
inline std::string chunkedResponse(int status, const std::string& body, std::size_t chunk) {
    std::string out = "HTTP/1.1 " + std::to_string(status) + " Scripted\r\nTransfer-Encoding: chunked\r\n"
                      "Connection: close\r\n\r\n";
    for (std::size_t at = 0; at < body.size(); at += chunk) {
        const std::string piece = body.substr(at, chunk);
        char size[32];
        std::snprintf(size, sizeof size, "%zx\r\n", piece.size());
        out += size + piece + "\r\n";
    }
    return out + "0\r\n\r\n";
}

// A self-signed certificate (EC P-256) for 127.0.0.1 and localhost, in PEM.
struct TestCertificate {
    std::string certificatePEM;
    std::string keyPEM;

    static TestCertificate make() {
        EVP_PKEY* key = EVP_EC_gen("P-256");
        X509* cert = X509_new();
        X509_set_version(cert, 2);
        ASN1_INTEGER_set(X509_get_serialNumber(cert), 1);
        X509_gmtime_adj(X509_getm_notBefore(cert), -3600);
        X509_gmtime_adj(X509_getm_notAfter(cert), 86400);
        X509_set_pubkey(cert, key);
        X509_NAME* name = X509_get_subject_name(cert);
        X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("localhost"), -1,
                                   -1, 0);
        X509_set_issuer_name(cert, name);
        X509V3_CTX ctx;
        X509V3_set_ctx_nodb(&ctx);
        X509V3_set_ctx(&ctx, cert, cert, nullptr, nullptr, 0);
        for (auto [nid, value] : {std::pair{NID_subject_alt_name, "IP:127.0.0.1,DNS:localhost"},
                                  std::pair{NID_basic_constraints, "critical,CA:TRUE"}}) {
            X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value);
            X509_add_ext(cert, extension, -1);
            X509_EXTENSION_free(extension);
        }
        X509_sign(cert, key, EVP_sha256());
        TestCertificate made{pem([&](BIO* bio) { PEM_write_bio_X509(bio, cert); }),
                             pem([&](BIO* bio) { PEM_write_bio_PrivateKey(bio, key, nullptr, nullptr, 0, nullptr, nullptr); })};
        X509_free(cert);
        EVP_PKEY_free(key);
        return made;
    }

private:
    template <typename Write>
    static std::string pem(Write write) {
        BIO* bio = BIO_new(BIO_s_mem());
        write(bio);
        char* data = nullptr;
        const long size = BIO_get_mem_data(bio, &data);
        std::string text(data, static_cast<std::size_t>(size));
        BIO_free(bio);
        return text;
    }
};

struct SeenRequest {
    std::string method;
    std::string target;
    std::map<std::string, std::string> headers;  // names lowercased
    std::string body;
};

class HttpTestServer {
public:
    // Plain HTTP without a certificate, TLS with one.
    explicit HttpTestServer(const TestCertificate* certificate = nullptr) {
        if (certificate) setUpTLS(*certificate);
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 || ::listen(listener_, 16) != 0 ||
            ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0)
            throw std::runtime_error("the test server cannot listen");
        port_ = ntohs(address.sin_port);
        acceptor_ = std::thread([this] { acceptLoop(); });
    }
    ~HttpTestServer() {
        stopping_ = true;
        acceptor_.join();
        for (auto& worker : workers_) worker.join();
        ::close(listener_);
        if (tls_) SSL_CTX_free(tls_);
    }
    HttpTestServer(const HttpTestServer&) = delete;
    HttpTestServer& operator=(const HttpTestServer&) = delete;

    // Answers for `path` (the target without its query), given in turn; the last one repeats.
    void on(const std::string& path, std::vector<std::string> answers) {
        std::lock_guard lock(mutex_);
        script_[path] = std::deque<std::string>(answers.begin(), answers.end());
    }
    // Requests for `path` are read and never answered until the server is destroyed.
    void silentOn(const std::string& path) {
        std::lock_guard lock(mutex_);
        silent_.push_back(path);
    }

    int port() const { return port_; }
    std::string url(const std::string& path, const std::string& host = "127.0.0.1") const {
        return std::string(tls_ ? "https" : "http") + "://" + host + ":" + std::to_string(port_) + path;
    }
    std::vector<SeenRequest> seen() const {
        std::lock_guard lock(mutex_);
        return seen_;
    }

private:
    struct Connection {
        int fd = -1;
        SSL* ssl = nullptr;
        ~Connection() {
            if (ssl) {
                SSL_shutdown(ssl);
                SSL_free(ssl);
            }
            ::close(fd);
        }
        long read(char* into, std::size_t size) {
            return ssl ? SSL_read(ssl, into, static_cast<int>(size)) : ::read(fd, into, size);
        }
        bool write(const std::string& bytes) {
            for (std::size_t at = 0; at < bytes.size();) {
                const long n = ssl ? SSL_write(ssl, bytes.data() + at, static_cast<int>(bytes.size() - at))
                                   : ::send(fd, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
                if (n <= 0) return false;
                at += static_cast<std::size_t>(n);
            }
            return true;
        }
    };

    void setUpTLS(const TestCertificate& certificate) {
        tls_ = SSL_CTX_new(TLS_server_method());
        BIO* certBio = BIO_new_mem_buf(certificate.certificatePEM.data(), static_cast<int>(certificate.certificatePEM.size()));
        BIO* keyBio = BIO_new_mem_buf(certificate.keyPEM.data(), static_cast<int>(certificate.keyPEM.size()));
        X509* cert = PEM_read_bio_X509(certBio, nullptr, nullptr, nullptr);
        EVP_PKEY* key = PEM_read_bio_PrivateKey(keyBio, nullptr, nullptr, nullptr);
        SSL_CTX_use_certificate(tls_, cert);
        SSL_CTX_use_PrivateKey(tls_, key);
        X509_free(cert);
        EVP_PKEY_free(key);
        BIO_free(certBio);
        BIO_free(keyBio);
    }

    void acceptLoop() {
        while (!stopping_) {
            pollfd ready{listener_, POLLIN, 0};
            if (::poll(&ready, 1, 50) <= 0) continue;
            const int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) continue;
            workers_.emplace_back([this, fd] { serve(fd); });
        }
    }

    // Waits for bytes while the server runs; false once it stops or the peer is gone.
    bool readSome(Connection& connection, std::string& into) {
        while (!stopping_) {
            if (!connection.ssl || SSL_pending(connection.ssl) == 0) {
                pollfd ready{connection.fd, POLLIN, 0};
                if (::poll(&ready, 1, 50) <= 0) continue;
            }
            char buffer[4096];
            const long n = connection.read(buffer, sizeof buffer);
            if (n <= 0) return false;
            into.append(buffer, static_cast<std::size_t>(n));
            return true;
        }
        return false;
    }

    void serve(int fd) {
        Connection connection{fd};
        if (tls_) {
            connection.ssl = SSL_new(tls_);
            SSL_set_fd(connection.ssl, fd);
            if (SSL_accept(connection.ssl) != 1) return;  // a client that did not trust us
        }
        std::string received;
        std::size_t end;
        while ((end = received.find("\r\n\r\n")) == std::string::npos)
            if (!readSome(connection, received)) return;
        SeenRequest request = parseHead(received.substr(0, end));
        const auto length = request.headers.find("content-length");
        const std::size_t bodySize = length == request.headers.end() ? 0 : std::stoul(length->second);
        while (received.size() < end + 4 + bodySize)
            if (!readSome(connection, received)) return;
        request.body = received.substr(end + 4, bodySize);
        const std::string path = request.target.substr(0, request.target.find('?'));
        std::string answer;
        bool silent = false;
        {
            std::lock_guard lock(mutex_);
            seen_.push_back(request);
            silent = std::find(silent_.begin(), silent_.end(), path) != silent_.end();
            auto found = script_.find(path);
            if (found == script_.end()) {
                answer = httpResponse(404);
            } else {
                answer = found->second.front();
                if (found->second.size() > 1) found->second.pop_front();
            }
        }
        if (silent) {
            std::string ignored;
            while (readSome(connection, ignored)) {
            }
            return;
        }
        connection.write(answer);
    }

    static SeenRequest parseHead(const std::string& head) {
        SeenRequest request;
        std::size_t at = head.find("\r\n");
        const std::string first = head.substr(0, at);
        request.method = first.substr(0, first.find(' '));
        request.target = first.substr(request.method.size() + 1, first.rfind(' ') - request.method.size() - 1);
        while (at != std::string::npos && at < head.size()) {
            const std::size_t next = head.find("\r\n", at + 2);
            const std::string line = head.substr(at + 2, next == std::string::npos ? std::string::npos : next - at - 2);
            if (const auto colon = line.find(':'); colon != std::string::npos) {
                std::string name = line.substr(0, colon);
                for (auto& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
                const auto value = line.find_first_not_of(' ', colon + 1);
                request.headers[name] = value == std::string::npos ? "" : line.substr(value);
            }
            at = next;
        }
        return request;
    }

    int listener_ = -1;
    int port_ = 0;
    SSL_CTX* tls_ = nullptr;
    std::atomic<bool> stopping_{false};
    std::thread acceptor_;
    std::vector<std::thread> workers_;  // only the acceptor adds to it, and only before the join
    mutable std::mutex mutex_;
    std::map<std::string, std::deque<std::string>> script_;
    std::vector<std::string> silent_;
    std::vector<SeenRequest> seen_;
};

}  // namespace orvane::testing
