// Serialises and deserialises a varied object graph and prints both forms, so
// that a run under the profiler can be compared with a plain one.
using System.Globalization;
using Newtonsoft.Json;
using Newtonsoft.Json.Linq;

namespace JsonRoundTrip
{
    public enum Status { Draft, Active, Retired }

    public struct Dimensions
    {
        public double Width;
        public double Height;
    }

    public abstract class Item
    {
        public string Name { get; set; }
        public Status Status { get; set; }
    }

    public class Part : Item
    {
        public decimal Price { get; set; }
        public Dimensions Size { get; set; }
        public int[] Codes { get; set; }
        public DateTime Made { get; set; }
        public Guid Id { get; set; }
        public int? Optional { get; set; }
    }

    public class Assembly : Item
    {
        public List<Item> Children { get; set; } = new List<Item>();
        public Dictionary<string, object> Attributes { get; set; } = new Dictionary<string, object>();
        public Tuple<int, string> Tag { get; set; }
    }

    public static class Program
    {
        public static int Main()
        {
            CultureInfo.CurrentCulture = CultureInfo.InvariantCulture;
            var root = new Assembly { Name = "root", Status = Status.Active, Tag = Tuple.Create(7, "seven") };
            for (int i = 0; i < 5; i++)
            {
                root.Children.Add(new Part
                {
                    Name = "part" + i, Status = (Status)(i % 3), Price = 1.25m * i,
                    Size = new Dimensions { Width = i, Height = i * 0.5 }, Codes = Enumerable.Range(i, 3).ToArray(),
                    Made = new DateTime(2020, 1, 1, 0, 0, 0, DateTimeKind.Utc).AddDays(i),
                    Id = new Guid(i, 2, 3, new byte[8]), Optional = i % 2 == 0 ? i : null,
                });
            }
            var sub = new Assembly { Name = "sub", Status = Status.Draft };
            sub.Attributes["weight"] = 12.5;
            sub.Attributes["tags"] = new[] { "a", "b" };
            sub.Attributes["nothing"] = null;
            root.Children.Add(sub);

            var settings = new JsonSerializerSettings
            {
                TypeNameHandling = TypeNameHandling.Auto, Formatting = Formatting.Indented,
                NullValueHandling = NullValueHandling.Include,
            };
            string json = JsonConvert.SerializeObject(root, settings);
            Console.WriteLine(json);
            var back = JsonConvert.DeserializeObject<Assembly>(json, settings);
            string again = JsonConvert.SerializeObject(back, settings);
            Console.WriteLine("round trip equal: " + (json == again));
            var parsed = JObject.Parse(json);
            Console.WriteLine("children: " + parsed["Children"].Count());
            Console.WriteLine("prices: " + string.Join(",", parsed.SelectTokens("$.Children[*].Price")));
            try
            {
                JsonConvert.DeserializeObject<Part>("{ \"Codes\": [1, 2, }");
            }
            catch (JsonException e)
            {
                Console.WriteLine("bad json: " + e.GetType().Name);
            }
            return back.Children.Count;
        }
    }
}
