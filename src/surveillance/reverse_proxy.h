#pragma once

/* Removes the reverse-proxy rules that were not used during their retention time:
 * every 300 s at the configuration service, then the web server's file
 * or the rule on the message bus (thread PROXY-worker). The first pass after
 * start removes all rules that can be read, whatever their age. */

int reverse_proxy_init(); // starts the worker; always 0

/* Ends the worker. A rule whose removal has begun is removed everywhere, since
 * the service would not list it again; no other is begun. Always 0. */
int reverse_proxy_uninit();
