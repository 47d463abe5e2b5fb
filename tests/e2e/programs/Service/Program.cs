// A minimal web service that starts on a loopback port of its own choosing,
// serves a few requests to itself (System.Text.Json on the server, Newtonsoft.Json
// on the client), prints what it received and stops. Its output depends only on
// its own computation, not on how fast it runs: with every method traced and
// every call recorded it runs ten to a hundred times slower, so neither side
// may give up on the other on a clock.
using System.Net.Http.Json;
using Microsoft.AspNetCore.Builder;
using Microsoft.AspNetCore.Hosting.Server;
using Microsoft.AspNetCore.Hosting.Server.Features;
using Microsoft.Extensions.Logging;

record Order(int Id, string Item, decimal Price, string[] Tags);

static class Program
{
    static async Task<int> Main()
    {
        var builder = WebApplication.CreateSlimBuilder();
        builder.Logging.ClearProviders();
        builder.WebHost.UseUrls("http://127.0.0.1:0");
        builder.WebHost.ConfigureKestrel(kestrel =>
        {
            kestrel.Limits.RequestHeadersTimeout = TimeSpan.FromHours(1);
            kestrel.Limits.KeepAliveTimeout = TimeSpan.FromHours(1);
            kestrel.Limits.MinRequestBodyDataRate = null;
            kestrel.Limits.MinResponseDataRate = null;
        });
        var app = builder.Build();
        app.MapGet("/orders/{id:int}", (int id) => new Order(id, "item" + id, id * 1.25m, new[] { "a", "b" }));
        app.MapPost("/total", (Order[] orders) => Results.Ok(new { Count = orders.Length, Sum = orders.Sum(o => o.Price) }));
        await app.StartAsync();
        var address = app.Services.GetRequiredService<IServer>().Features.Get<IServerAddressesFeature>().Addresses.First();

        using var client = new HttpClient { BaseAddress = new Uri(address), Timeout = Timeout.InfiniteTimeSpan };
        var orders = new List<Order>();
        for (int id = 1; id <= 3; id++)
        {
            string text = await client.GetStringAsync("/orders/" + id);
            var order = Newtonsoft.Json.JsonConvert.DeserializeObject<Order>(text);
            Console.WriteLine($"order {order.Id}: {order.Item} {order.Price} [{string.Join(",", order.Tags)}]");
            orders.Add(order);
        }
        var response = await client.PostAsJsonAsync("/total", orders);
        Console.WriteLine($"total: {(int)response.StatusCode} {await response.Content.ReadAsStringAsync()}");
        var missing = await client.GetAsync("/orders/none");
        Console.WriteLine($"missing: {(int)missing.StatusCode}");
        await app.StopAsync();
        return 0;
    }
}
