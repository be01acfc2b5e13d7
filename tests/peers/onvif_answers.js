// An ONVIF device that answers with the replies of real devices, which the package "onvif" has recorded, and answers
// searches. It prints "listens".
// node onvif_answers.js NODE_MODULES ADDRESS PORT
const [modules, address, port] = process.argv.slice(2);
const fs = require('fs');
const http = require('http');
const dgram = require('dgram');
const folder = modules + '/onvif/test/serverMockup/';
const place = {SERVICE_URI: `http://${address}:${port}/onvif/device_service`, HOSTNAME: address, PORT: port};

function recorded(operation) {
    for (const name of [operation, 'device.' + operation, 'media.' + operation]) {
        const file = folder + name + '.xml';
        if (fs.existsSync(file))
            return fs.readFileSync(file, 'utf8').replace(/{{{(\w+)}}}/g, (all, key) => place[key] || all);
    }
    return null;
}

http.createServer((request, response) => {
    let body = '';
    request.on('data', (piece) => body += piece);
    request.on('end', () => {
        const operation = (/<(?:\w+:)?Body[^>]*>\s*<(?:\w+:)?(\w+)/.exec(body) || [])[1];
        const reply = operation && recorded(operation);
        response.writeHead(reply ? 200 : 500, {'Content-Type': 'application/soap+xml'});
        response.end(reply || 'unknown');
    });
}).listen(Number(port), address, () => {
    const socket = dgram.createSocket({type: 'udp4', reuseAddr: true});
    socket.on('message', (message, from) => {
        const id = (/MessageID[^>]*>([^<]+)</.exec(message.toString()) || [])[1];
        const reply = `<?xml version="1.0"?><SOAP-ENV:Envelope xmlns:SOAP-ENV="http://www.w3.org/2003/05/soap-envelope"
            xmlns:wsa="http://schemas.xmlsoap.org/ws/2004/08/addressing"
            xmlns:d="http://schemas.xmlsoap.org/ws/2005/04/discovery"><SOAP-ENV:Header><wsa:RelatesTo>${id}</wsa:RelatesTo>
            </SOAP-ENV:Header><SOAP-ENV:Body><d:ProbeMatches><d:ProbeMatch><wsa:EndpointReference>
            <wsa:Address>urn:uuid:recorded</wsa:Address></wsa:EndpointReference><d:Types>dn:NetworkVideoTransmitter</d:Types>
            <d:XAddrs>${place.SERVICE_URI}</d:XAddrs></d:ProbeMatch></d:ProbeMatches></SOAP-ENV:Body></SOAP-ENV:Envelope>`;
        socket.send(reply, from.port, from.address);
    });
    socket.bind(3702, () => {
        socket.addMembership('239.255.255.250', address);
        console.log('listens');
    });
});
