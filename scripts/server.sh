# Web servers with the configurations of docs/server, on loopback; source it after lib.sh.

server_packages=(nginx-light caddy curl)

# configure_server SOURCE FOLDER PORT OUT : the configuration SOURCE with PORT and OUT in their places.
configure_server() {
    mkdir -p "$2/temp"
    sed -e "s|listen 8102|listen 127.0.0.1:$3|; s|http://:8102|http://127.0.0.1:$3|; s|/srv/brekka|$4|" \
        "$1" >"$2/$(basename "$1")"
}

# start_nginx FOLDER PORT OUT / start_caddy FOLDER PORT OUT : $server is the process.
start_nginx() {
    configure_server "$root/docs/server/nginx.conf" "$@"
    nginx -p "$1" -c nginx.conf -g 'daemon off;' 2>"$1/log" &
    server=$!
    await_server "$@"
}

start_caddy() {
    configure_server "$root/docs/server/Caddyfile" "$@"
    HOME=$1 XDG_DATA_HOME=$1/data XDG_CONFIG_HOME=$1/config \
        caddy run --adapter caddyfile --config "$1/Caddyfile" >"$1/log" 2>&1 &
    server=$!
    await_server "$@"
}

await_server() {
    curl -s -o /dev/null --retry 50 --retry-delay 1 --retry-connrefused "http://127.0.0.1:$2/" ||
        fail "no answer on port $2, see $1/log"
}

# free_port : prints one that nobody listens on.
free_port() {
    local port
    for port in $(shuf -i 20000-30000 -n 50); do
        (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null || break
    done
    printf '%s\n' "$port"
}
