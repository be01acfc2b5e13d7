// Finds ONVIF cameras with the package "onvif" and asks the one at ADDRESS for its stream.
// node onvif_client.js NODE_MODULES ADDRESS PORT USER PASSWORD
const [modules, hostname, port, username, password] = process.argv.slice(2);
const onvif = require(modules + '/onvif');

onvif.Discovery.on('error', (error) => console.log('error ' + error));
onvif.Discovery.probe({timeout: 3000, resolve: false}, (error, found) => {
    for (const camera of found || [])
        console.log('found ' + camera.probeMatches.probeMatch.XAddrs);
    new onvif.Cam({hostname, port, username, password, timeout: 10000}, function (refused) {
        if (refused) {
            console.log('refused ' + refused.message);
            process.exit(0);
        }
        this.getStreamUri({protocol: 'RTSP'}, (failed, stream) => {
            console.log('stream ' + (failed || stream.uri));
            process.exit(0);
        });
    });
});
